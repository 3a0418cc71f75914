# What the toolchains of Debian's cross compilers have in common; vexamsg_triplet and vexamsg_emulator are set.
set(CMAKE_C_COMPILER ${vexamsg_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${vexamsg_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${vexamsg_triplet})

# Programs of the build run on this machine; what is linked comes from the other one.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The C library that came with the compiler is the one that the emulated programs see.
set(CMAKE_CROSSCOMPILING_EMULATOR ${vexamsg_emulator} -L /usr/${vexamsg_triplet})
