# SPDX-License-Identifier: MIT
# Debian packages: libraries, what programmers need beside them, and the program.
set(libraries libvk410-${VK410_SOVERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vk410)
set(CPACK_PACKAGE_CONTACT "VK410 toolkit developers <vk410@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(packages ${libraries} libvk410-dev vk410) # in that order
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${CPACK_PACKAGE_CONTACT})
# What each file links to names the packages that it depends on; of our own libraries that package is named below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/platform/nqbase ${PROJECT_BINARY_DIR}/platform/values ${PROJECT_BINARY_DIR}/platform/freqlist
    ${PROJECT_BINARY_DIR}/devicecontrol/vk410protocol)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${libraries})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Mass data of VK410 monitoring receivers: shared libraries
 Datagram reader, processors for spectra and direction finding, value framework.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvk410-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${libraries} (= ${PROJECT_VERSION}), qtbase5-dev (>= 5.15), libboost-dev (>= 1.74)")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Mass data of VK410 monitoring receivers: headers and CMake packages
 find_package(vk410protocol) gives the target vk410::vk410protocol.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vk410)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION hamradio)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${libraries} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "wireshark | tshark")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Mass data of VK410 monitoring receivers: the program
 Live page in the browser, recording and replay, inspection, a simulated receiver, a Wireshark dissector.")
foreach(component package IN ZIP_LISTS CPACK_COMPONENTS_ALL packages)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} RENAME copyright
        COMPONENT ${component})
endforeach()
include(CPack)
