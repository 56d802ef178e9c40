# The flags that every target of this project is built with: velora_compiler carries them.

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(velora_compiler INTERFACE)
target_compile_features(velora_compiler INTERFACE cxx_std_20)
target_compile_options(velora_compiler INTERFACE -Wall -Wextra -Wpedantic -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # Optimising, it takes a literal added to a temporary std::string for an overlapping copy
    # (https://gcc.gnu.org/PR105651).
    target_compile_options(velora_compiler INTERFACE -Wno-restrict)
endif()
if(VELORA_WARNINGS_AS_ERRORS)
    target_compile_options(velora_compiler INTERFACE -Werror)
endif()
if(VELORA_SANITIZE)
    target_compile_options(velora_compiler INTERFACE
        -fsanitize=${VELORA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(velora_compiler INTERFACE -fsanitize=${VELORA_SANITIZE})
    if(VELORA_SANITIZE MATCHES "thread")
        # The standard library's fences are modelled by nothing; the code uses none where it matters.
        target_compile_options(velora_compiler INTERFACE -Wno-tsan)
    endif()
endif()

# Against memory errors in what is installed. Tables of addresses that cannot be written once the program runs cost
# nothing. Checked copies and guarded stacks cost a sixth of the time that composing a line takes, so they are asked for.
# What the builder's own flags, or a compiler's defaults, say of those two holds.
option(VELORA_HARDEN "Build the library and the tools with the compiler's run-time checks, too" OFF)
add_library(velora_hardening INTERFACE)
target_link_options(velora_hardening INTERFACE LINKER:-z,relro LINKER:-z,now)
if(VELORA_HARDEN AND NOT VELORA_SANITIZE)
    include(CheckCXXSourceCompiles)
    check_cxx_source_compiles("
        #ifdef _FORTIFY_SOURCE
        #error
        #endif
        int main() {}" VELORA_COMPILER_FORTIFIES_NOTHING)
    if(VELORA_COMPILER_FORTIFIES_NOTHING)
        # Without optimisation the C library only warns that it cannot.
        target_compile_definitions(velora_hardening INTERFACE
            "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:_FORTIFY_SOURCE=2>")
    endif()
    if(NOT CMAKE_CXX_FLAGS MATCHES "stack-protector")
        target_compile_options(velora_hardening INTERFACE -fstack-protector-strong)
    endif()
endif()

if(VELORA_COVERAGE)
    # Counted by threads at the same time.
    target_compile_options(velora_compiler INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(velora_compiler INTERFACE --coverage)
endif()
if(VELORA_BUILD_FUZZERS AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Lets libFuzzer see which code an input reaches.
    target_compile_options(velora_compiler INTERFACE -fsanitize=fuzzer-no-link)
endif()

# ccache compiles once what several build folders compile alike. With precompiled headers it works only if told that their
# macros and times do not matter: they are a part of what it compares anyhow.
find_program(VELORA_CCACHE ccache)
if(VELORA_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime "${VELORA_CCACHE}")
endif()
