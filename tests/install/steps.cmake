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

function(expect_same file other)
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${file} ${other} RESULT_VARIABLE result ERROR_VARIABLE why)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${file} is not ${other}: ${why}")
    endif()
endfunction()

# Manual pages and completion lie where man and bash look for them, and are what the installed program gives in `work`.
function(expect_manuals_of prefix work)
    set(ENV{VK410_CONFIG} "")
    set(ENV{XDG_CONFIG_HOME} ${work})
    file(MAKE_DIRECTORY ${work}/man)
    run(${prefix}/bin/vk410 help --man all ${work}/man)
    file(GLOB pages RELATIVE ${work}/man ${work}/man/*.1)
    file(GLOB installed RELATIVE ${prefix}/share/man/man1 ${prefix}/share/man/man1/*.1)
    list(LENGTH pages count)
    if(count LESS 11 OR NOT pages STREQUAL installed)
        message(FATAL_ERROR "the program has the pages ${pages}, installed are ${installed}")
    endif()
    foreach(page IN LISTS pages)
        expect_same(${prefix}/share/man/man1/${page} ${work}/man/${page})
    endforeach()
    execute_process(COMMAND ${prefix}/bin/vk410 help --completion bash OUTPUT_FILE ${work}/vk410 RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "no completion: ${result}")
    endif()
    expect_same(${prefix}/share/bash-completion/completions/vk410 ${work}/vk410)
endfunction()

# The two levels of the datagram in main.cpp.
function(expect_levels_of program)
    execute_process(COMMAND ${program} RESULT_VARIABLE result OUTPUT_VARIABLE printed)
    if(NOT result EQUAL 0 OR NOT printed STREQUAL "7\n4095\n")
        message(FATAL_ERROR "${program} ended with ${result} and printed: ${printed}")
    endif()
endfunction()
