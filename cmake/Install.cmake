include(CMakePackageConfigHelpers)

install(TARGETS velmor-ocsp EXPORT VelmorOCSPTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/pki
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

set(VELMOR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorOCSP)
install(EXPORT VelmorOCSPTargets NAMESPACE Velmor:: DESTINATION ${VELMOR_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VelmorOCSPConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelmorOCSPConfig.cmake
  INSTALL_DESTINATION ${VELMOR_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelmorOCSPConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelmorOCSPConfig.cmake
  ${PROJECT_BINARY_DIR}/VelmorOCSPConfigVersion.cmake
  DESTINATION ${VELMOR_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/velmor-ocsp.pc.in
  ${PROJECT_BINARY_DIR}/velmor-ocsp.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velmor-ocsp.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
