# SPDX-License-Identifier: MIT
# Steps that the tests of the installed tree share.

# run(COMMAND...): ends the test with the command's output when it fails.
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}: ${result}\n${output}")
    endif()
endfunction()

# build_project(SOURCE BUILD [CMake options...])
function(build_project source build)
    run(${CMAKE_COMMAND} -S ${source} -B ${build} -G Ninja -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
        -DCMAKE_CXX_FLAGS=${CXX_FLAGS} ${ARGN})
    run(${CMAKE_COMMAND} --build ${build})
endfunction()

# The two levels of the datagram in main.cpp.
function(expect_levels_of program)
    execute_process(COMMAND ${program} RESULT_VARIABLE result OUTPUT_VARIABLE printed)
    if(NOT result EQUAL 0 OR NOT printed STREQUAL "7\n4095\n")
        message(FATAL_ERROR "${program} ended with ${result} and printed: ${printed}")
    endif()
endfunction()
