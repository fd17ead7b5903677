# SPDX-License-Identifier: MIT
# Installs the project into a folder of its own, builds each example against it, and runs the one that needs no receiver.
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}: ${result}\n${output}")
    endif()
    set(printed "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
foreach(example minimal_host own_processor mirror_client read_recording)
    run(${CMAKE_COMMAND} -S ${EXAMPLES_DIR}/${example} -B ${WORK_DIR}/${example} -G Ninja
        -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_CXX_FLAGS=${CXX_FLAGS})
    run(${CMAKE_COMMAND} --build ${WORK_DIR}/${example})
endforeach()
run(${WORK_DIR}/read_recording/read_recording ${SAMPLE})
if(NOT printed MATCHES "MHz")
    message(FATAL_ERROR "read_recording printed: ${printed}")
endif()
