# The options a builder may set. What needs more than libev is on when its needs are met, and says by
# name what is missing when it is not.
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

option(VEXAMSG_RECLAIM_QUEUE_COPIES
    "Release a queued message's copy when it leaves its queue, for nodes that run for days" OFF)
option(VEXAMSG_WERROR "Treat warnings as errors" OFF)
set(VEXAMSG_MSGLOG "" CACHE FILEPATH
    "Log library to link in place of the stand-in libmsglog.so (it must define ControlLog and ControlLogInit)")
set(VEXAMSG_SANITIZE "" CACHE STRING "Sanitizers to build everything with: address,undefined or thread")
option(VEXAMSG_COVERAGE "Instrument for line coverage (gcov)" OFF)

# vexamsg_part(<option> <help text> <package> <Debian packages> ...): an option that is on by default when
# each package is found. When one is not, the part is left out with a line naming what to install, and nothing
# is written to the cache: the next configuration, with the packages there, has the part without being asked.
function(vexamsg_part option help)
    set(missing "")
    set(rest ${ARGN})
    while(rest)
        list(POP_FRONT rest package debian)
        find_package(${package} QUIET)
        if(NOT ${package}_FOUND)
            string(APPEND missing " ${debian}")
        endif()
    endwhile()
    if(NOT missing)
        option(${option} "${help}" ON)
    elseif(${option})
        message(FATAL_ERROR "${option} needs packages that are not installed:${missing}")
    else()
        message(STATUS "${option} is off; missing:${missing}")
    endif()
endfunction()

vexamsg_part(VEXAMSG_BUILD_TOOLS "Build the program vexa and the demo"
    CLI11 libcli11-dev fmt libfmt-dev nlohmann_json nlohmann-json3-dev PCAP libpcap-dev)
vexamsg_part(VEXAMSG_BUILD_TESTS "Build the tests" GTest "libgtest-dev libgmock-dev")
option(VEXAMSG_BUILD_EXAMPLES "Build the example programs" ON)
option(VEXAMSG_BUILD_FUZZERS "Build the fuzz targets (clang; see the preset fuzz)" OFF)
option(VEXAMSG_BUILD_BENCH "Build the bench (scripts/bench)" OFF)
option(VEXAMSG_INSTALL "Install with \"cmake --install\"" ${PROJECT_IS_TOP_LEVEL})
