# What find_package(tarn) and pkg-config need, beside what each part installs itself.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tarnConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tarnConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tarnConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarnConfig.cmake ${PROJECT_BINARY_DIR}/tarnConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT dev)
install(EXPORT tarnTargets NAMESPACE tarn:: DESTINATION ${package_dir} COMPONENT dev)

file(RELATIVE_PATH pkgconfig_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(library tarn tarnhost tarntesting)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()
