# The tests of what is built around the library: the programs are run as a user runs them.
if(NOT TARGET vexa_process)
    add_subdirectory("${PROJECT_SOURCE_DIR}/tools/process" process)
endif()

# The log library as it is linked into programs: the test programs themselves bring a log of their own.
if(NOT VEXAMSG_MSGLOG)
    add_executable(msglog_probe msglog/probe.cpp)
    target_link_libraries(msglog_probe PRIVATE VexaMsg VexaMsg::msglog vexamsg_compile Threads::Threads)
    vexamsg_test(test_msglog SOURCES test_msglog.cpp LIBRARIES vexa_process)
    target_compile_definitions(test_msglog PRIVATE
        MSGLOG_PROBE="$<TARGET_FILE:msglog_probe>"
        MSGLOG_SOURCE_DIR="${PROJECT_SOURCE_DIR}/msglog"
        MSGLOG_SWAP_DIR="${CMAKE_CURRENT_SOURCE_DIR}/msglog/swap"
        CMAKE_PROGRAM="${CMAKE_COMMAND}"
        C_COMPILER="${CMAKE_C_COMPILER}")
    add_dependencies(test_msglog msglog_probe)
endif()

if(VEXAMSG_BUILD_TOOLS)
    vexamsg_test(test_manager_registry SOURCES test_manager_registry.cpp LIBRARIES vexa_manager_logic)

    vexamsg_test(test_manager_program SOURCES test_manager_program.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json)
    target_compile_definitions(test_manager_program PRIVATE
        VEXA_PROGRAM="$<TARGET_FILE:vexa>" VEXA_VERSION="${PROJECT_VERSION}")
    add_dependencies(test_manager_program vexa)

    vexamsg_test(test_demo SOURCES test_demo.cpp LIBRARIES vexa_process)
    target_compile_definitions(test_demo PRIVATE
        VEXA_PROGRAM="$<TARGET_FILE:vexa>"
        DEMO_PROGRAM="$<TARGET_FILE:vexa_demo>"
        DEMO_NODE_PROGRAM="$<TARGET_FILE:vexa_demo_node>")
    add_dependencies(test_demo vexa vexa_demo vexa_demo_node)

    vexamsg_test(test_demo_link SOURCES test_demo_link.cpp LIBRARIES vexa_process)
    target_compile_definitions(test_demo_link PRIVATE
        VEXA_PROGRAM="$<TARGET_FILE:vexa>"
        DEMO_PROGRAM="$<TARGET_FILE:vexa_demo>"
        DEMO_NODE_PROGRAM="$<TARGET_FILE:vexa_demo_node>")
    add_dependencies(test_demo_link vexa vexa_demo vexa_demo_node)

    vexamsg_test(test_link_decode SOURCES test_link_decode.cpp LIBRARIES vexa_link_logic)

    vexamsg_test(test_link_program SOURCES test_link_program.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json)
    target_compile_definitions(test_link_program PRIVATE VEXA_PROGRAM="$<TARGET_FILE:vexa>")
    add_dependencies(test_link_program vexa)

    vexamsg_test(test_soak_traffic SOURCES test_soak_traffic.cpp LIBRARIES vexa_soak_logic)
    vexamsg_test(test_soak_account SOURCES test_soak_account.cpp LIBRARIES vexa_soak_logic)
    vexamsg_test(test_soak_relay SOURCES test_soak_relay.cpp LIBRARIES vexa_soak_relay)

    vexamsg_test(test_soak SOURCES test_soak.cpp LIBRARIES vexa_process TIMEOUT 180)
    target_compile_definitions(test_soak PRIVATE
        SOAK_PROGRAM="$<TARGET_FILE:vexa_soak>"
        SOAK_OTHER_EXPECTATION="$<IF:$<BOOL:${VEXAMSG_RECLAIM_QUEUE_COPIES}>,kept,given-back>")
    if(NOT VEXAMSG_SANITIZE) # the sanitizers bring an allocator of their own
        target_compile_definitions(test_soak PRIVATE SOAK_HEAP_WATCHED)
    endif()
    add_dependencies(test_soak vexa_soak)
endif()
