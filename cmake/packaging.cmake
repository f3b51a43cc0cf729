# The daemon's service unit and sample configuration, and the Debian package
# (`cpack -G DEB` in a build directory) holding the library, its headers and
# development files, and vqglob with both.
if(VQ_GLOB_TOOL AND NOT WIN32)
  set(VQ_GLOB_SAMPLE_CONFIG ${PROJECT_SOURCE_DIR}/examples/vqglob-serve.conf)
  install(FILES ${VQ_GLOB_SAMPLE_CONFIG} DESTINATION ${CMAKE_INSTALL_DOCDIR})
  # The unit names absolute paths, which are known only at install time: the
  # package is staged under /usr while the build was configured for another
  # prefix. /usr takes its configuration from /etc, any other prefix from
  # its own etc/.
  install(CODE "
    set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
    if(prefix STREQUAL \"/usr\")
      set(VQ_GLOB_CONFIG /etc/vqglob/serve.conf)
    else()
      set(VQ_GLOB_CONFIG \"\${prefix}/etc/vqglob/serve.conf\")
    endif()
    set(VQ_GLOB_BIN_DIR \"\${prefix}/${CMAKE_INSTALL_BINDIR}\")
    set(VQ_GLOB_DOC_DIR \"\${prefix}/${CMAKE_INSTALL_DOCDIR}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/vqglob.service.in\"
      \"\$ENV{DESTDIR}\${prefix}/lib/systemd/system/vqglob.service\" @ONLY)
    message(STATUS \"Installing: \$ENV{DESTDIR}\${prefix}/lib/systemd/system/vqglob.service\")
  ")
endif()

set(CPACK_PACKAGE_NAME vqglob)
set(CPACK_PACKAGE_VENDOR "vq_glob")
set(CPACK_PACKAGE_CONTACT "vq_glob maintainers <vq_glob@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "file deployment daemon and client on the vq_glob foundation library")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
# Run-time dependencies from the binaries themselves; OpenSSL is loaded at run
# time, so it is only recommended (without it TLS is refused, plain loopback
# mode still works).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libssl3")
include(CPack)
