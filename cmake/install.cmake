# SPDX-License-Identifier: MIT
# What a program that links the library finds: headers below include/prod_common, a pkg-config file
# and a CMake package.
include(CMakePackageConfigHelpers)

set(PROD_INSTALL_INCLUDE ${CMAKE_INSTALL_INCLUDEDIR}/prod_common)
install(TARGETS prod_common prod_platform EXPORT prod_common
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${PROD_INSTALL_INCLUDE})
install(DIRECTORY include/ platform/include/ DESTINATION ${PROD_INSTALL_INCLUDE}
        FILES_MATCHING PATTERN *.h)

configure_file(cmake/prod_common.pc.in ${CMAKE_BINARY_DIR}/prod_common.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/prod_common.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(PROD_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/prod_common)
install(EXPORT prod_common NAMESPACE prod_common:: FILE prod_common-targets.cmake
        DESTINATION ${PROD_PACKAGE_DIR})
configure_package_config_file(cmake/prod_common-config.cmake.in
    ${CMAKE_BINARY_DIR}/prod_common-config.cmake INSTALL_DESTINATION ${PROD_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/prod_common-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/prod_common-config.cmake
        ${CMAKE_BINARY_DIR}/prod_common-config-version.cmake DESTINATION ${PROD_PACKAGE_DIR})
