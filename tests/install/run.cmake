# SPDX-License-Identifier: MIT
# Installs the project into a folder of its own, builds the consumer against it, runs it, and compares what it prints.
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}: ${result}\n${output}")
    endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
# Moved away: the package must not remember where it was installed to.
file(RENAME ${prefix} ${WORK_DIR}/elsewhere)
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G Ninja -DCMAKE_PREFIX_PATH=${WORK_DIR}/elsewhere
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_CXX_FLAGS=${CXX_FLAGS})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE result OUTPUT_VARIABLE printed)
if(NOT result EQUAL 0 OR NOT printed STREQUAL "7\n4095\n")
    message(FATAL_ERROR "the consumer ended with ${result} and printed: ${printed}")
endif()
