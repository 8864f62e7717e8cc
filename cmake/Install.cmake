# Installs the libraries, the header tree under include/qrnimg, a CMake package and a
# pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS qrnsys qrnreg qrncim qrnimg EXPORT qrnimgTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrnimg)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrnimg
  FILES_MATCHING PATTERN "*.h")

install(FILES ${PROJECT_BINARY_DIR}/generated/Version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrnimg)

install(EXPORT qrnimgTargets NAMESPACE qrnimg:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qrnimg)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qrnimgConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qrnimgConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qrnimg)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qrnimgConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qrnimgConfig.cmake ${PROJECT_BINARY_DIR}/qrnimgConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qrnimg)

# The .pc file finds its prefix relative to itself, so an installed tree can be moved.
file(RELATIVE_PATH QRN_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qrnimg.pc.in ${PROJECT_BINARY_DIR}/qrnimg.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qrnimg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
