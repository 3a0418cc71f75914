# The tests of what is built around the library: the programs are run as a user runs them.
if(VEXAMSG_BUILD_TOOLS)
    vexamsg_test(test_manager_registry SOURCES test_manager_registry.cpp LIBRARIES vexa_manager_logic)

    vexamsg_test(test_manager_program SOURCES test_manager_program.cpp
        LIBRARIES vexa_process nlohmann_json::nlohmann_json)
    target_compile_definitions(test_manager_program PRIVATE
        VEXA_PROGRAM="$<TARGET_FILE:vexa>" VEXA_VERSION="${PROJECT_VERSION}")
    add_dependencies(test_manager_program vexa)
endif()
