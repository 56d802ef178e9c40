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

if(VELORA_COVERAGE)
    # Counted by threads at the same time.
    target_compile_options(velora_compiler INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(velora_compiler INTERFACE --coverage)
endif()
if(VELORA_BUILD_FUZZERS AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Lets libFuzzer see which code an input reaches.
    target_compile_options(velora_compiler INTERFACE -fsanitize=fuzzer-no-link)
endif()

find_program(VELORA_CCACHE ccache)
if(VELORA_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${VELORA_CCACHE}")
endif()
