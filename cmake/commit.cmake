# SPDX-License-Identifier: MIT
# Writes OUT, a header that says which commit of SOURCE is built. Run with every build; the file changes, and what
# includes it is built again, only when the commit does.
set(commit unknown)
set(date 1970-01-01)
find_package(Git QUIET)
if(Git_FOUND)
    execute_process(COMMAND ${GIT_EXECUTABLE} -C ${SOURCE} log -1 --abbrev=12 --format=%h\ %cs
        OUTPUT_VARIABLE last OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
    if(failed EQUAL 0 AND last MATCHES "^([0-9a-f]+) ([0-9-]+)$")
        set(commit ${CMAKE_MATCH_1})
        set(date ${CMAKE_MATCH_2})
    endif()
endif()
set(content "#define VK410_COMMIT \"${commit}\"\n#define VK410_COMMIT_DATE \"${date}\"\n")
if(EXISTS ${OUT})
    file(READ ${OUT} before)
endif()
if(NOT "${before}" STREQUAL "${content}")
    file(WRITE ${OUT} "${content}")
endif()
