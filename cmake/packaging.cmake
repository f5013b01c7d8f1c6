# Install rules and the Debian package. `make install` and `make package` drive these.
include(GNUInstallDirs)
# Installing and packaging would otherwise build every target first, the test programs included;
# the Makefile builds just the program and the man page before it installs or packages.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS quillmend RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Debian ships man pages gzipped; -n leaves the name and time out so the package is reproducible.
set(QM_MAN_SOURCE ${CMAKE_SOURCE_DIR}/man/quillmend.1)
set(QM_MAN_GZ ${CMAKE_BINARY_DIR}/man/quillmend.1.gz)
add_custom_command(
  OUTPUT ${QM_MAN_GZ}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
  COMMAND ${CMAKE_COMMAND} -E copy ${QM_MAN_SOURCE} ${CMAKE_BINARY_DIR}/man/quillmend.1
  COMMAND gzip -9nf ${CMAKE_BINARY_DIR}/man/quillmend.1
  DEPENDS ${QM_MAN_SOURCE}
  COMMENT "Compressing the man page"
  VERBATIM)
add_custom_target(qm_man ALL DEPENDS ${QM_MAN_GZ})
install(FILES ${QM_MAN_GZ} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillmend)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "quillmend developers")
set(CPACK_PACKAGE_CONTACT "quillmend developers")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "quillmend developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "finalize unfinalized MDF4 files from CAN/LIN bus data loggers")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "finalize unfinalized MDF4 files from CAN/LIN bus data loggers
quillmend converts the MDF4 measurement files that CAN/LIN bus data loggers
write unfinalized into finalized MDF4 files. It unwraps compressed and
encrypted logger containers, fixes the block tree, sorts the records of every
data group by channel group and writes <stem>_fin.MF4 beside the input or
under an output folder, mirroring folder trees.")
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Depends is worked out by dpkg-shlibdeps from the libraries the program links (libcrypto among
# them).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The build keeps debug information; the package does not need it.
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
