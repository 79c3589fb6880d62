# SPDX-License-Identifier: MIT
# The Debian packages, one for each component; script/package makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME prod-common)
set(CPACK_PACKAGE_CONTACT "The prod_common authors <prod-common@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL common platform development tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# Debian's name of the processor, where it is not the machine's own.
if(PROD_ARCH)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${PROD_ARCH})
endif()

set(libc "libc6 (>= 2.36)")
set(same_version "(= ${PROJECT_VERSION})")
# Programs and the library need some port of this interface, not the default one.
set(port "libprod-platform1 | prod-platform-1")

set(CPACK_DEBIAN_COMMON_PACKAGE_NAME libprod-common1)
set(CPACK_DEBIAN_COMMON_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_COMMON_DESCRIPTION "Common library of a small router's firmware")
set(CPACK_DEBIAN_COMMON_PACKAGE_DEPENDS "${libc}, libcjson1, libsqlite3-0, zlib1g, ${port}")

# A vendor's port has a package of its own, with the same three lines and the same object.
set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME libprod-platform1)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION
    "Platform functions of the router's common library, for stock Linux")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS
    "${libc}, libcjson1, liblmdb0, libnl-3-200, libnl-genl-3-200, libsqlite3-0, zlib1g")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_PROVIDES prod-platform-1)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONFLICTS prod-platform-1)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_REPLACES prod-platform-1)

# The link-time name of the port is the default one's: a vendor's takes over at run time.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libprod-common-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers of the router's common library")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libprod-common1 ${same_version}, ${port}, libcjson-dev")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME prod-common-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Command-line tools of the router's common library")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "${libc}, libprod-common1 ${same_version}, ${port}, libcjson1, libsqlite3-0, zlib1g")

# Debian wants to know which package a library's users need.
set(CPACK_DEBIAN_COMMON_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/common/shlibs
    ${CMAKE_BINARY_DIR}/packaging/triggers)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/platform/shlibs
    ${CMAKE_BINARY_DIR}/packaging/triggers)
file(WRITE ${CMAKE_BINARY_DIR}/packaging/common/shlibs
    "libprod_common 1 libprod-common1 (>= ${PROJECT_VERSION})\n")
file(WRITE ${CMAKE_BINARY_DIR}/packaging/platform/shlibs "libprod_platform 1 ${port}\n")
file(WRITE ${CMAKE_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")

foreach(component common platform development tools)
    string(TOUPPER ${component} upper)
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
            COMPONENT ${component} RENAME copyright)
endforeach()

include(CPack)
