# The tests of what is built around the library: the programs are run as a user runs them.
if(NOT TARGET vexa_process)
    add_subdirectory("${PROJECT_SOURCE_DIR}/tools/process" process)
endif()

# The log library as it is linked into programs: the test programs themselves bring a log of their own.
if(NOT VEXAMSG_MSGLOG)
    add_executable(msglog_probe msglog/probe.cpp)
    target_link_libraries(msglog_probe PRIVATE VexaMsg VexaMsg::msglog vexamsg_compile Threads::Threads)
    vexamsg_runnable(msglog_probe msglog_probe_path)
    vexamsg_test(test_msglog SOURCES test_msglog.cpp LIBRARIES vexa_process)
    target_compile_definitions(test_msglog PRIVATE
        MSGLOG_PROBE="${msglog_probe_path}"
        MSGLOG_SOURCE_DIR="${PROJECT_SOURCE_DIR}/msglog"
        MSGLOG_SWAP_DIR="${CMAKE_CURRENT_SOURCE_DIR}/msglog/swap"
        CMAKE_PROGRAM="${CMAKE_COMMAND}"
        C_COMPILER="${CMAKE_C_COMPILER}")
    add_dependencies(test_msglog msglog_probe)
endif()

if(VEXAMSG_BUILD_TOOLS)
    vexamsg_runnable(vexa vexa_path)
    vexamsg_runnable(vexa_demo vexa_demo_path --programs "${VEXAMSG_RUN_DIRECTORY}")
    vexamsg_runnable(vexa_demo_node vexa_demo_node_path)

    vexamsg_test(test_manager_registry SOURCES test_manager_registry.cpp LIBRARIES vexa_manager_logic)

    vexamsg_test(test_manager_program SOURCES test_manager_program.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json)
    target_compile_definitions(test_manager_program PRIVATE
        VEXA_PROGRAM="${vexa_path}" VEXA_VERSION="${PROJECT_VERSION}")
    add_dependencies(test_manager_program vexa)

    vexamsg_test(test_service_notify SOURCES test_service_notify.cpp LIBRARIES vexa_bench_socket vexa_process)
    target_compile_definitions(test_service_notify PRIVATE VEXA_PROGRAM="${vexa_path}")
    add_dependencies(test_service_notify vexa)

    vexamsg_test(test_demo SOURCES test_demo.cpp LIBRARIES vexa_process)
    target_compile_definitions(test_demo PRIVATE
        VEXA_PROGRAM="${vexa_path}"
        DEMO_PROGRAM="${vexa_demo_path}"
        DEMO_NODE_PROGRAM="${vexa_demo_node_path}")
    add_dependencies(test_demo vexa vexa_demo vexa_demo_node)

    vexamsg_test(test_demo_link SOURCES test_demo_link.cpp LIBRARIES vexa_process)
    target_compile_definitions(test_demo_link PRIVATE
        VEXA_PROGRAM="${vexa_path}"
        DEMO_PROGRAM="${vexa_demo_path}"
        DEMO_NODE_PROGRAM="${vexa_demo_node_path}")
    add_dependencies(test_demo_link vexa vexa_demo vexa_demo_node)

    vexamsg_test(test_manager_killed FAULTS SOURCES test_manager_killed.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json TIMEOUT 3600)
    target_compile_definitions(test_manager_killed PRIVATE
        VEXA_PROGRAM="${vexa_path}" DEMO_NODE_PROGRAM="${vexa_demo_node_path}")
    add_dependencies(test_manager_killed vexa vexa_demo_node)
    vexamsg_test(test_formats SOURCES test_formats.cpp test_heartbeat_frame.cpp test_message_filter.cpp
        LIBRARIES vexa_message_logic)
    vexamsg_test(test_capture SOURCES test_datagrams.cpp test_capture.cpp LIBRARIES vexa_capture PCAP::PCAP)

    vexamsg_test(test_echo_program SOURCES test_echo_program.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json PCAP::PCAP)
    target_compile_definitions(test_echo_program PRIVATE VEXA_PROGRAM="${vexa_path}")
    add_dependencies(test_echo_program vexa)

    # Outside of the network of its own that other tests have: inside it every user looks like root, and tshark is
    # to run as an ordinary one.
    find_program(TSHARK_PROGRAM tshark)
    if(TSHARK_PROGRAM)
        vexamsg_runnable(vexa_dissector vexa_dissector_path)
        vexamsg_test(test_dissector OUTSIDE SOURCES test_dissector.cpp support/tshark.cpp
            LIBRARIES vexa_formats vexa_capture vexa_process PCAP::PCAP TIMEOUT 600)
        target_compile_definitions(test_dissector PRIVATE
            TSHARK_PROGRAM="${TSHARK_PROGRAM}"
            DEMO_PROGRAM="${vexa_demo_path}"
            DISSECTOR_GENERATOR="${vexa_dissector_path}"
            DISSECTOR_ENGINE="${PROJECT_SOURCE_DIR}/tools/wireshark/engine.lua"
            DISSECTOR_FILE="${PROJECT_SOURCE_DIR}/tools/wireshark/vexamsg.lua")
        add_dependencies(test_dissector vexa vexa_demo vexa_demo_node vexa_dissector)
    else()
        message(STATUS "test_dissector is left out; missing: tshark")
    endif()

    vexamsg_test(test_recording SOURCES test_recording.cpp test_remapping.cpp LIBRARIES vexa_recording_logic PCAP::PCAP)
    vexamsg_test(test_pcapng SOURCES test_pcapng.cpp LIBRARIES vexa_capture vexa_process PCAP::PCAP)
    if(TSHARK_PROGRAM)
        target_compile_definitions(test_pcapng PRIVATE TSHARK_PROGRAM="${TSHARK_PROGRAM}")
    endif()
    foreach(name IN ITEMS record replay replay_keys)
        vexamsg_test(test_${name}_program SOURCES test_${name}_program.cpp
            LIBRARIES vexa_process vexa_capture nlohmann_json::nlohmann_json PCAP::PCAP TIMEOUT 180)
        target_compile_definitions(test_${name}_program PRIVATE VEXA_PROGRAM="${vexa_path}")
        add_dependencies(test_${name}_program vexa)
    endforeach()

    vexamsg_test(test_link_decode SOURCES test_link_decode.cpp LIBRARIES vexa_link_logic)

    vexamsg_test(test_link_program SOURCES test_link_program.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json)
    target_compile_definitions(test_link_program PRIVATE VEXA_PROGRAM="${vexa_path}")
    add_dependencies(test_link_program vexa)

    # The subcommands that stand on a bench: each run is a process, the other nodes are sockets.
    vexamsg_test(test_node_programs
        SOURCES test_send_program.cpp test_hb_program.cpp test_explain_program.cpp test_doctor_program.cpp
        LIBRARIES vexa_process vexa_formats vexa_machine_logic nlohmann_json::nlohmann_json TIMEOUT 180)
    target_compile_definitions(test_node_programs PRIVATE VEXA_PROGRAM="${vexa_path}")
    add_dependencies(test_node_programs vexa)

    # What `vexa nodes` and `vexa top` count and draw, and the programs on a terminal.
    vexamsg_test(test_watch SOURCES test_rate_meter.cpp test_flow_table.cpp test_socket_watch.cpp test_node_watch.cpp
            test_text_screen.cpp test_top_page.cpp
        LIBRARIES vexa_watch_logic nlohmann_json::nlohmann_json)
    vexamsg_test(test_watch_program SOURCES test_nodes_program.cpp test_top_program.cpp test_top_rates.cpp
        LIBRARIES vexa_process vexa_machine_logic nlohmann_json::nlohmann_json PCAP::PCAP TIMEOUT 180)
    target_compile_definitions(test_watch_program PRIVATE VEXA_PROGRAM="${vexa_path}")
    add_dependencies(test_watch_program vexa)

    vexamsg_test(test_udp_sockets SOURCES test_udp_sockets.cpp LIBRARIES vexa_machine_logic)

    vexamsg_test(test_demo_keep SOURCES test_demo_keep.cpp
        LIBRARIES vexa_process vexa_machine_logic nlohmann_json::nlohmann_json TIMEOUT 180)
    target_compile_definitions(test_demo_keep PRIVATE
        VEXA_PROGRAM="${vexa_path}" DEMO_PROGRAM="${vexa_demo_path}")
    add_dependencies(test_demo_keep vexa vexa_demo vexa_demo_node)

    add_test(NAME DemoScript.EntersTheBenchThatIsKept
        COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/demo_enter.sh" "${PROJECT_SOURCE_DIR}/scripts/demo")
    set_tests_properties(DemoScript.EntersTheBenchThatIsKept PROPERTIES TIMEOUT 60)

    vexamsg_test(test_soak_account SOURCES test_soak_traffic.cpp test_soak_account.cpp LIBRARIES vexa_soak_logic)
    vexamsg_test(test_soak_relay SOURCES test_soak_relay.cpp LIBRARIES vexa_soak_relay)

    vexamsg_runnable(vexa_soak_node vexa_soak_node_path) # found beside the next
    vexamsg_runnable(vexa_soak vexa_soak_path --programs "${VEXAMSG_RUN_DIRECTORY}")
    vexamsg_test(test_soak SOURCES test_soak.cpp LIBRARIES vexa_process TIMEOUT 180)
    target_compile_definitions(test_soak PRIVATE
        SOAK_PROGRAM="${vexa_soak_path}"
        SOAK_OTHER_EXPECTATION="$<IF:$<BOOL:${VEXAMSG_RECLAIM_QUEUE_COPIES}>,kept,given-back>")
    if(NOT VEXAMSG_SANITIZE) # the sanitizers bring an allocator of their own
        target_compile_definitions(test_soak PRIVATE SOAK_HEAP_WATCHED)
    endif()
    add_dependencies(test_soak vexa_soak)

    if(VEXAMSG_BUILD_EXAMPLES)
        vexamsg_test(test_examples SOURCES test_examples.cpp LIBRARIES vexa_process nlohmann_json::nlohmann_json)
        target_compile_definitions(test_examples PRIVATE VEXA_PROGRAM="${vexa_path}")
        foreach(name IN ITEMS wait_for_peer callback polling status broadcast heartbeat proxy report camera own_log)
            vexamsg_runnable(example_${name} path)
            string(TOUPPER "EXAMPLE_${name}" definition)
            target_compile_definitions(test_examples PRIVATE ${definition}="${path}")
            add_dependencies(test_examples example_${name})
        endforeach()
        add_dependencies(test_examples vexa)
    endif()

    # Goes through all subcommands several times, each look at a help text being a run of the program.
    vexamsg_test(test_help_program SOURCES test_help_program.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json TIMEOUT 180)
    target_compile_definitions(test_help_program PRIVATE
        VEXA_PROGRAM="${vexa_path}" VEXA_SHARE="${PROJECT_BINARY_DIR}/share")
    add_dependencies(test_help_program vexa vexa_share)
endif()
