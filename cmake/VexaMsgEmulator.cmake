# What runs programs of another architecture: nothing in a build for this one.
string(JOIN " " VEXAMSG_EMULATOR ${CMAKE_CROSSCOMPILING_EMULATOR})

# vexamsg_runnable(<target> <variable> [<argument>...]): the path by which scripts and other programs start a target.
# For another architecture that is a script, in one directory with those of all targets, which starts it in the
# emulator, with these arguments before others.
set(VEXAMSG_RUN_DIRECTORY "${PROJECT_BINARY_DIR}/run")
function(vexamsg_runnable target variable)
    if(VEXAMSG_EMULATOR)
        set(script "${VEXAMSG_RUN_DIRECTORY}/$<TARGET_FILE_NAME:${target}>")
        string(JOIN " " arguments ${ARGN})
        get_property(written TARGET ${target} PROPERTY VEXAMSG_RUNNABLE)
        if(NOT written)
            file(GENERATE OUTPUT "${script}"
                CONTENT "#!/bin/sh\nexec ${VEXAMSG_EMULATOR} '$<TARGET_FILE:${target}>' ${arguments} \"$@\"\n"
                FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
            set_property(TARGET ${target} PROPERTY VEXAMSG_RUNNABLE ON)
        endif()
        set(${variable} "${script}" PARENT_SCOPE)
    else()
        set(${variable} "$<TARGET_FILE:${target}>" PARENT_SCOPE)
    endif()
endfunction()
