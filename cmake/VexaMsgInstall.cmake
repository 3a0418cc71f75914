# What "cmake --install" puts where, in components: library, msglog, development, tools. Nothing that is installed names
# the place that it was installed to, so that the tree may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
foreach(directory BINDIR LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${directory}}")
        message(FATAL_ERROR "CMAKE_INSTALL_${directory} must be relative to the prefix")
    endif()
endforeach()

set(VEXAMSG_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/vexamsg") # a folder of its own: its headers' names are short
set(VEXAMSG_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/VexaMsg")

# Where the libraries lie, seen from themselves and from the programs.
file(RELATIVE_PATH libraries_from_programs "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
set_target_properties(VexaMsg PROPERTIES INSTALL_RPATH "$ORIGIN")
if(TARGET vexa)
    set_target_properties(vexa PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
endif()

# The library, and the log library it was linked with, unless that is somebody else's.
target_include_directories(VexaMsg PUBLIC "$<INSTALL_INTERFACE:${VEXAMSG_INCLUDEDIR}>")
install(TARGETS VexaMsg EXPORT VexaMsgTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT library NAMELINK_COMPONENT development)
if(VEXAMSG_MSGLOG)
    set(msglog_link "${VEXAMSG_MSGLOG}")
else()
    target_include_directories(msglog INTERFACE "$<INSTALL_INTERFACE:${VEXAMSG_INCLUDEDIR}>")
    install(TARGETS msglog EXPORT VexaMsgTargets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT msglog NAMELINK_COMPONENT development)
    set(msglog_link "-lmsglog")
endif()

# One folder takes all headers, with the layout that they are included by: "utils/ut_list.h", "vxlink/vxlink.h".
install(DIRECTORY sdk_include/ include/ msglog/include/
    DESTINATION "${VEXAMSG_INCLUDEDIR}" COMPONENT development FILES_MATCHING PATTERN "*.h")

# find_package(VexaMsg CONFIG)
install(EXPORT VexaMsgTargets NAMESPACE VexaMsg:: DESTINATION "${VEXAMSG_CMAKEDIR}" COMPONENT development)
configure_package_config_file(cmake/VexaMsgConfig.cmake.in "${PROJECT_BINARY_DIR}/install/VexaMsgConfig.cmake"
    INSTALL_DESTINATION "${VEXAMSG_CMAKEDIR}"
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/install/VexaMsgConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/install/VexaMsgConfig.cmake"
    "${PROJECT_BINARY_DIR}/install/VexaMsgConfigVersion.cmake"
    cmake/FindLibev.cmake
    DESTINATION "${VEXAMSG_CMAKEDIR}" COMPONENT development)

# pkg-config vexamsg
file(RELATIVE_PATH prefix_from_pkgconfig "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
configure_file(cmake/vexamsg.pc.in "${PROJECT_BINARY_DIR}/install/vexamsg.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/install/vexamsg.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

# The program, its manual pages and completion, and the dissector where Wireshark looks for such.
if(TARGET vexa)
    install(TARGETS vexa RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
    install(FILES tools/wireshark/vexamsg.lua
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/wireshark/plugins" COMPONENT tools)
endif()
if(TARGET vexa_share)
    install(DIRECTORY "${PROJECT_BINARY_DIR}/share/man/man1"
        DESTINATION "${CMAKE_INSTALL_MANDIR}" COMPONENT tools)
    install(FILES "${PROJECT_BINARY_DIR}/share/bash-completion/completions/vexa"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
endif()
