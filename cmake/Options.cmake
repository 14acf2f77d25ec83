# Build options, warnings and sanitizers; every target links moxel_options.
option(MOXEL_BUILD_TESTS "Build the test suite" ON)
option(MOXEL_BUILD_EXAMPLES "Build the example programs" ON)
option(MOXEL_BUILD_BENCHMARKS "Build the benchmarks; they need Google Benchmark" OFF)
option(MOXEL_BUILD_FUZZERS "Build the fuzzers and what they watch; they need clang" OFF)
option(MOXEL_WARNINGS_AS_ERRORS "Stop at the first compiler warning" OFF)
set(MOXEL_SANITIZE "" CACHE STRING "Sanitizers to build with: address, thread or empty")
set(MOXEL_PLATFORM "${CMAKE_SYSTEM_NAME}" CACHE STRING "Folder of Platform/ that provides the services")

# Where several files are compiled as one (CMAKE_UNITY_BUILD), these stay by themselves: what is private to them has the
# names of what is private to others.
function(moxel_compile_alone)
    set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

# For programs whose libraries of templates take minutes to optimise once they are sanitized.
function(moxel_optimise_unless_sanitized target)
    if(MOXEL_SANITIZE)
        target_compile_options(${target} PRIVATE -O0)
    endif()
endfunction()

# What most files include.
function(moxel_precompile_headers target)
    target_precompile_headers(${target} PRIVATE <algorithm> <array> <atomic> <chrono> <condition_variable> <deque> <functional>
        <map> <memory> <mutex> <optional> <set> <span> <string> <string_view> <thread> <utility> <variant> <vector>)
endfunction()

add_library(moxel_options INTERFACE)
# What is built tells nothing of the folder that it was built in, so that everybody gets the same bytes;
# debuggers look for the sources from the folder that they run in.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_options("-ffile-prefix-map=${PROJECT_BINARY_DIR}=build" "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
endif()
target_compile_options(moxel_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
target_include_directories(moxel_options INTERFACE "${PROJECT_SOURCE_DIR}")
if(MOXEL_WARNINGS_AS_ERRORS)
    target_compile_options(moxel_options INTERFACE -Werror)
endif()
if(MOXEL_SANITIZE STREQUAL "address")
    # The checks of dynamic types need a pipe, which tests that use up the descriptors don't leave them, and a C++
    # runtime, which C programs don't bring.
    set(MOXEL_SANITIZE_FLAGS -fsanitize=address,undefined -fno-sanitize=vptr,function -fno-sanitize-recover=all
                             -fno-omit-frame-pointer)
elseif(MOXEL_SANITIZE STREQUAL "thread")
    set(MOXEL_SANITIZE_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(MOXEL_SANITIZE)
    message(FATAL_ERROR "MOXEL_SANITIZE is \"${MOXEL_SANITIZE}\"; it may be address, thread or empty")
endif()
if(MOXEL_BUILD_FUZZERS)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
if(MOXEL_SANITIZE_FLAGS)
    add_compile_options(${MOXEL_SANITIZE_FLAGS})
    add_link_options(${MOXEL_SANITIZE_FLAGS})
endif()
