# Finds libev, which ships no CMake configuration of its own. Gives the target Libev::Libev.
find_path(Libev_INCLUDE_DIR ev.h)
find_library(Libev_LIBRARY ev)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Libev
    REQUIRED_VARS Libev_LIBRARY Libev_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "install libev's development files (Debian: apt-get install libev-dev)")
if(Libev_FOUND AND NOT TARGET Libev::Libev)
    add_library(Libev::Libev UNKNOWN IMPORTED)
    set_target_properties(Libev::Libev PROPERTIES
        IMPORTED_LOCATION "${Libev_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${Libev_INCLUDE_DIR}")
endif()
mark_as_advanced(Libev_INCLUDE_DIR Libev_LIBRARY)
