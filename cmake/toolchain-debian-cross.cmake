# What the toolchains of Debian's cross compilers have in common; vexamsg_triplet and vexamsg_emulator are set.
set(CMAKE_C_COMPILER ${vexamsg_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${vexamsg_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${vexamsg_triplet})

# Programs of the build run on this machine; what is linked comes from the other one.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# What a library found there needs itself is there too. A program's own run path (not the newer kind, which does not
# hold for the libraries of its libraries) lets the emulator find both.
if(CMAKE_FIND_ROOT_PATH)
    string(CONCAT CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--disable-new-dtags"
        ",-rpath-link,${CMAKE_FIND_ROOT_PATH}/usr/lib/${vexamsg_triplet}")
endif()

# The C library that came with the compiler is the one that the emulated programs see.
set(CMAKE_CROSSCOMPILING_EMULATOR ${vexamsg_emulator} -L /usr/${vexamsg_triplet})
