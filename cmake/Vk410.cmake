# SPDX-License-Identifier: MIT
# What every target of the project shares: language, warnings, sanitizers, and the shapes of libraries, tests and benchmarks.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

option(VK410_WERROR "Treat warnings as errors" ${PROJECT_IS_TOP_LEVEL})
set(VK410_SANITIZE "" CACHE STRING "Value for -fsanitize=, empty for none")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Warnings and sanitizers of our own targets; never handed on to users of the libraries.
add_library(vk410_strict INTERFACE)
add_library(vk410::strict ALIAS vk410_strict)
target_compile_options(vk410_strict INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual
    -ffp-contract=off # channel positions are evaluated just so: a product, then a sum
    $<$<BOOL:${VK410_WERROR}>:-Werror>)
# g++ 12 takes "literal" + std::string for an overlapping copy at -O3; 13 does not any more.
target_compile_options(vk410_strict INTERFACE
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
# The libraries never replace each other's functions at load time; calls inside one need no indirection.
target_compile_options(vk410_strict INTERFACE -fno-semantic-interposition)
if(VK410_SANITIZE)
    # float-cast-overflow and float-divide-by-zero are not part of "undefined"; both have hidden defects before.
    target_compile_options(vk410_strict INTERFACE
        -fsanitize=${VK410_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
    target_link_options(vk410_strict INTERFACE -fsanitize=${VK410_SANITIZE})
    # Instruction-set dispatch resolves before the sanitizer run time is up; these builds test the plain loops.
    target_compile_definitions(vk410_strict INTERFACE VK410_PLAIN_LOOPS)
endif()

# What links against one minor version of 0.x need not run with the next one: the package says the same.
set(VK410_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

# A shared library of the project: hidden symbols, SOVERSION, headers compiled on their own. Its file has the project's
# name in front, since system folders hold the libraries of others, too.
function(vk410_shared_library name)
    set(file_name vk410${name})
    if(name MATCHES "^vk410")
        set(file_name ${name})
    endif()
    set_target_properties(${name} PROPERTIES
        OUTPUT_NAME ${file_name}
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        VERIFY_INTERFACE_HEADER_SETS ON
        INSTALL_RPATH "$ORIGIN" # the installed tree can be moved as a whole
        VERSION ${PROJECT_VERSION}
        SOVERSION ${VK410_SOVERSION})
endfunction()

# Installs the targets of one CMake package: libraries, headers, export file and package configuration.
function(vk410_install_package package)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "TARGETS")
    install(TARGETS ${ARG_TARGETS} EXPORT ${package}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vk410 COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vk410)
    set(where ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
    install(EXPORT ${package} NAMESPACE vk410:: FILE ${package}Targets.cmake DESTINATION ${where}
        COMPONENT development)
    configure_package_config_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${package}Config.cmake.in
        ${PROJECT_BINARY_DIR}/${package}Config.cmake INSTALL_DESTINATION ${where})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
        COMPATIBILITY SameMinorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/${package}Config.cmake
        ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake DESTINATION ${where} COMPONENT development)
endfunction()

# The tests that run several threads, for the thread checks.
add_custom_target(threaded_tests)

# vk410_precompile(<target> <header>...): what takes the compiler longer to read than most of the target's files do is
# read once for all of them.
function(vk410_precompile target)
    target_precompile_headers(${target} PRIVATE ${ARGN})
    # So that a compiler cache can tell what a precompiled header holds.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endfunction()

# Not optimised while developing: a test runs once for each time it is compiled, and the checks of sanitizers take an
# optimiser three times as long.
set(vk410_test_options $<$<CONFIG:Debug>:-O0>)

# vk410_add_test(<name> [MOC] [EVENT_LOOP] [SOURCES ...] LINK ... [LABELS ...]): a GoogleTest program from <name>.cpp.
# MOC: the test declares classes with Q_OBJECT. EVENT_LOOP: it needs an application object.
function(vk410_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "MOC;EVENT_LOOP" "" "SOURCES;LINK;LABELS")
    add_executable(${name} ${name}.cpp ${ARG_SOURCES})
    if(ARG_MOC)
        set_target_properties(${name} PROPERTIES AUTOMOC ON)
    endif()
    if(ARG_EVENT_LOOP)
        target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/event_loop_main.cpp)
        target_link_libraries(${name} PRIVATE GTest::gmock)
    else()
        target_link_libraries(${name} PRIVATE GTest::gmock_main)
    endif()
    target_link_libraries(${name} PRIVATE ${ARG_LINK} vk410_test_support vk410::strict)
    target_compile_options(${name} PRIVATE ${vk410_test_options})
    target_precompile_headers(${name} REUSE_FROM vk410_test_headers)
    # Pretty values would put raw parameter bytes into the names.
    # One label each: a list would be taken apart on its way into the test's properties.
    list(GET ARG_LABELS -1 label)
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${label} TIMEOUT 300)
    if("threads" IN_LIST ARG_LABELS)
        add_dependencies(threaded_tests ${name})
    endif()
endfunction()

# vk410_add_fuzz(<name> LINK ...): a fuzz target from <name>.cpp with corpus/<name>. With clang and
# VK410_SANITIZE=fuzzer,... it is a libFuzzer program; otherwise ctest replays the corpus through a small main.
function(vk410_add_fuzz name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK")
    add_executable(${name} ${name}.cpp ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINK} vk410_test_support vk410::strict)
    if(VK410_LIBFUZZER)
        target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
        target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    else()
        target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp)
        add_test(NAME ${name}.corpus COMMAND ${name} ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
        set_tests_properties(${name}.corpus PROPERTIES LABELS fuzz TIMEOUT 300)
    endif()
endfunction()

# vk410_add_bench(<name> LINK ...): a Google Benchmark program from <name>.cpp.
function(vk410_add_bench name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK")
    add_executable(${name} ${name}.cpp ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINK} vk410_test_support vk410_bench_support vk410::strict)
    set_property(GLOBAL APPEND PROPERTY VK410_BENCHMARKS ${name})
endfunction()
