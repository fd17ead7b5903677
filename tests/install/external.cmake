# SPDX-License-Identifier: MIT
# The protocol library against platform libraries from elsewhere: a second build of them, installed by itself.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)
set(sources ${CMAKE_CURRENT_LIST_DIR}/../..)
file(REMOVE_RECURSE ${WORK_DIR})
build_project(${sources}/platform ${WORK_DIR}/platform)
run(${CMAKE_COMMAND} --install ${WORK_DIR}/platform --prefix ${WORK_DIR}/theirs)
build_project(${sources} ${WORK_DIR}/protocol -DVK410_PLATFORM=external -DVK410_BUILD_TOOLS=OFF -DVK410_BUILD_TESTS=OFF
    -DVK410_BUILD_FUZZ=OFF -DCMAKE_PREFIX_PATH=${WORK_DIR}/theirs)
run(${CMAKE_COMMAND} --install ${WORK_DIR}/protocol --prefix ${WORK_DIR}/ours)
file(GLOB_RECURSE bundled ${WORK_DIR}/protocol/*values.so* ${WORK_DIR}/ours/*values.so*)
if(bundled)
    message(FATAL_ERROR "built or installed although they come from elsewhere: ${bundled}")
endif()
set(ENV{CMAKE_PREFIX_PATH} ${WORK_DIR}/ours:${WORK_DIR}/theirs)
build_project(${CMAKE_CURRENT_LIST_DIR} ${WORK_DIR}/build)
# Libraries of two places: it is the application's matter where they lie at run time.
set(ENV{LD_LIBRARY_PATH} ${WORK_DIR}/theirs/lib)
expect_levels_of(${WORK_DIR}/build/consumer)
