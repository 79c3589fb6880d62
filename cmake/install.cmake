# SPDX-License-Identifier: MIT
# What a program that links the library finds: headers below include/prod_common, a pkg-config file
# and a CMake package.
include(CMakePackageConfigHelpers)

set(PROD_INSTALL_INCLUDE ${CMAKE_INSTALL_INCLUDEDIR}/prod_common)
# Components are the packages of cmake/package.cmake. The default port is one of its own, so that a
# vendor's can stand in its place.
foreach(part common platform)
    install(TARGETS prod_${part} EXPORT prod_common
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                COMPONENT ${part} NAMELINK_COMPONENT development
            INCLUDES DESTINATION ${PROD_INSTALL_INCLUDE})
endforeach()
install(DIRECTORY include/ platform/include/ DESTINATION ${PROD_INSTALL_INCLUDE}
        COMPONENT development FILES_MATCHING PATTERN *.h)

# Relative, so that the tree may be moved, into a sysroot for one.
file(RELATIVE_PATH PROD_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/prod_common.pc.in ${CMAKE_BINARY_DIR}/prod_common.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/prod_common.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

set(PROD_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/prod_common)
install(EXPORT prod_common NAMESPACE prod_common:: FILE prod_common-targets.cmake
        DESTINATION ${PROD_PACKAGE_DIR} COMPONENT development)
configure_package_config_file(cmake/prod_common-config.cmake.in
    ${CMAKE_BINARY_DIR}/prod_common-config.cmake INSTALL_DESTINATION ${PROD_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/prod_common-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/prod_common-config.cmake
        ${CMAKE_BINARY_DIR}/prod_common-config-version.cmake DESTINATION ${PROD_PACKAGE_DIR}
        COMPONENT development)
