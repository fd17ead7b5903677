# SPDX-License-Identifier: MIT
# Installs the project into a folder of its own, builds the consumer against it, runs it, and compares what it prints.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
# Moved away: the package must not remember where it was installed to.
file(RENAME ${WORK_DIR}/prefix ${WORK_DIR}/elsewhere)
if(HAS_TOOLS)
    expect_manuals_of(${WORK_DIR}/elsewhere ${WORK_DIR}/again)
    expect_same(${WORK_DIR}/elsewhere/lib/systemd/system/vk410-monitor.service
        ${CMAKE_CURRENT_LIST_DIR}/../../packaging/vk410-monitor.service)
endif()
build_project(${CMAKE_CURRENT_LIST_DIR} ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/elsewhere)
expect_levels_of(${WORK_DIR}/build/consumer)
