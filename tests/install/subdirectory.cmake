# SPDX-License-Identifier: MIT
# Builds the consumer with the project's sources as a folder of its own.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
build_project(${CMAKE_CURRENT_LIST_DIR} ${WORK_DIR}/build -DVK410_SOURCES=${CMAKE_CURRENT_LIST_DIR}/../..)
expect_levels_of(${WORK_DIR}/build/consumer)
# Nobody who only links the library waits for the program, the tests or their dependencies.
file(GLOB_RECURSE unwanted ${WORK_DIR}/build/*toolkit* ${WORK_DIR}/build/*gtest*)
if(unwanted)
    message(FATAL_ERROR "built besides the libraries: ${unwanted}")
endif()
