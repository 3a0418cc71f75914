# For s390x with Debian's cross compiler: nothing flies on it, but it is big-endian and shows every number that is
# written in the host's byte order. See toolchain-arm64.cmake.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(vexamsg_triplet s390x-linux-gnu)
set(vexamsg_emulator qemu-s390x)
include("${CMAKE_CURRENT_LIST_DIR}/toolchain-debian-cross.cmake")
