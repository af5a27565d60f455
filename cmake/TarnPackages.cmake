# Debian packages: libtarn0, libtarn-dev, tarn, tarnd. `cpack` in the build folder makes them.
install(FILES ${PROJECT_SOURCE_DIR}/packaging/tarnd.service ${PROJECT_SOURCE_DIR}/packaging/tarnd.socket
  DESTINATION /lib/systemd/system COMPONENT tarnd)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/tarnd.toml DESTINATION /etc/tarn COMPONENT tarnd)
install(FILES ${PROJECT_SOURCE_DIR}/docs/operating.md ${PROJECT_SOURCE_DIR}/docs/errors.md ${PROJECT_SOURCE_DIR}/docs/browser.md
  DESTINATION share/doc/tarnd COMPONENT tarnd)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "Tarn maintainers <maintainers@tarn.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Remote file storage")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libtarn dev tarn tarnd)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF) # written out below, with versions

# What the programs are linked with is found by looking at them; our own libraries are not packages yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

set(CPACK_DEBIAN_LIBTARN_PACKAGE_NAME libtarn0)
set(CPACK_DEBIAN_LIBTARN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBTARN_DESCRIPTION "Remote file storage: client library and a host for it")
set(CPACK_DEBIAN_LIBTARN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_LIBTARN_PACKAGE_RECOMMENDS ca-certificates)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtarn-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "Remote file storage: headers of the client library, and a service for tests")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "libtarn0 (= ${PROJECT_VERSION}), libpoco-dev, libboost-dev (>= 1.74)")

set(CPACK_DEBIAN_TARN_PACKAGE_NAME tarn)
set(CPACK_DEBIAN_TARN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TARN_DESCRIPTION "Remote file storage: command line")
set(CPACK_DEBIAN_TARN_PACKAGE_DEPENDS "libtarn0 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TARN_PACKAGE_SUGGESTS "tarnd")

set(CPACK_DEBIAN_TARND_PACKAGE_NAME tarnd)
set(CPACK_DEBIAN_TARND_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TARND_DESCRIPTION "Remote file storage: service")
set(CPACK_DEBIAN_TARND_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_TARND_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/postinst
  ${PROJECT_SOURCE_DIR}/packaging/prerm
  ${PROJECT_SOURCE_DIR}/packaging/postrm
  ${PROJECT_SOURCE_DIR}/packaging/conffiles)
set(CPACK_DEBIAN_TARND_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
