# SPDX-License-Identifier: MIT
# Installs the project into a folder of its own, builds each example against it, and runs the one that needs no receiver.
include(${CMAKE_CURRENT_LIST_DIR}/../install/steps.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
set(sources ${CMAKE_CURRENT_LIST_DIR}/../..)
foreach(example minimal_host own_processor mirror_client read_recording)
    build_project(${sources}/examples/${example} ${WORK_DIR}/${example} -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix)
endforeach()
execute_process(COMMAND ${WORK_DIR}/read_recording/read_recording ${sources}/docs/samples/df.bin
    RESULT_VARIABLE result OUTPUT_VARIABLE printed)
if(NOT result EQUAL 0 OR NOT printed MATCHES "156.8000 MHz:  72.5 degrees")
    message(FATAL_ERROR "read_recording ended with ${result} and printed: ${printed}")
endif()
