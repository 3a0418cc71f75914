# How everything of ours is compiled: the language level, the warnings, the sanitizers.
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(vexamsg_compile INTERFACE)
target_compile_definitions(vexamsg_compile INTERFACE _GNU_SOURCE)
target_compile_options(vexamsg_compile INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
    # GCC 12 sees an overlap in the text of "x" + std::string(...) where there is none; GCC 13 does not.
    $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
    $<$<BOOL:${VEXAMSG_WERROR}>:-Werror>)

# Sanitizers hold for the whole tree: a half-instrumented process reports nonsense.
if(VEXAMSG_SANITIZE)
    add_compile_options(-fsanitize=${VEXAMSG_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    # Clang links a C program with its runtime for C, but the library in it is C++ and asks for a part of the other.
    add_link_options(-fsanitize=${VEXAMSG_SANITIZE}
        $<$<LINK_LANG_AND_ID:C,Clang>:-fsanitize-link-c++-runtime> $<$<LINK_LANG_AND_ID:C,Clang>:-lstdc++>)
endif()
# Compilers differ in how they tell a source of the sanitizer that watches it.
if(VEXAMSG_SANITIZE MATCHES "address")
    add_compile_definitions(VEXAMSG_UNDER_ASAN)
elseif(VEXAMSG_SANITIZE MATCHES "thread")
    add_compile_definitions(VEXAMSG_UNDER_TSAN)
endif()
if(VEXAMSG_COVERAGE)
    add_link_options(--coverage) # for the library's objects, which alone are counted
endif()
