# Options of this project, and tolvex_options, which all targets of the project compile and link with.
# Users of the library do not get any of these.

option(TOLVEX_BUILD_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(TOLVEX_BUILD_EXAMPLES "Build the examples" ${PROJECT_IS_TOP_LEVEL})
option(TOLVEX_BUILD_DASHCAM "Build the dashcam, if its packages are there" ${TOLVEX_BUILD_EXAMPLES})
option(TOLVEX_BUILD_BENCHMARKS "Build the benchmarks (needs the packages of scripts/setup bench)" OFF)
option(TOLVEX_BUILD_FUZZERS "Build the libFuzzer targets (clang only)" OFF)
option(TOLVEX_INSTALL "Offer install and package rules" ${PROJECT_IS_TOP_LEVEL})
option(TOLVEX_WARNINGS_AS_ERRORS "Stop at the first compiler warning" OFF)
set(TOLVEX_SANITIZE "" CACHE STRING "Sanitizers for all targets: address,undefined or thread")

include(CheckTypeSize)
set(CMAKE_EXTRA_INCLUDE_FILES ctime)
check_type_size(std::time_t TOLVEX_TIME_T_BYTES LANGUAGE CXX)
unset(CMAKE_EXTRA_INCLUDE_FILES)

add_library(tolvex_options INTERFACE)
target_compile_options(tolvex_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wdouble-promotion
    -Wcast-align -Wformat=2 -Wimplicit-fallthrough
    $<$<BOOL:${TOLVEX_WARNINGS_AS_ERRORS}>:-Werror>)
if(TOLVEX_SANITIZE)
    target_compile_options(tolvex_options INTERFACE
        -fsanitize=${TOLVEX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(tolvex_options INTERFACE -fsanitize=${TOLVEX_SANITIZE})
endif()
