# For 64-bit ARM, the vision computer's own architecture, with Debian's cross compiler. Libraries and CMake packages
# are looked for in CMAKE_FIND_ROOT_PATH only; the preset arm64 names a directory that scripts/test-arch fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(vexamsg_triplet aarch64-linux-gnu)
set(vexamsg_emulator qemu-aarch64)
include("${CMAKE_CURRENT_LIST_DIR}/toolchain-debian-cross.cmake")
