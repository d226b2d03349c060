# `cmake --install`: the program, the `pavo` tool, the SDK library with its public headers, a CMake
# package (find_package(pv_pavo) gives pv::pavo) and a pkg-config file (pv_pavo) for SDK users, and
# the program's desktop entry and icon. `cpack` makes a Debian package of the same files.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(MAPURA_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/pv_pavo)

# Programs find the SDK beside them wherever the tree is installed.
file(RELATIVE_PATH _mapura_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set(_mapura_rpath "$ORIGIN/${_mapura_bin_to_lib}")

# The SDK.
set_target_properties(pv_pavo PROPERTIES EXPORT_NAME pavo)
install(TARGETS pv_pavo EXPORT pv_pavoTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/sdk/include/pv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(EXPORT pv_pavoTargets NAMESPACE pv:: DESTINATION ${MAPURA_CMAKE_PACKAGE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/pv_pavoConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/pv_pavoConfig.cmake INSTALL_DESTINATION ${MAPURA_CMAKE_PACKAGE_DIR})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/pv_pavoConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/pv_pavoConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/pv_pavoConfigVersion.cmake
  DESTINATION ${MAPURA_CMAKE_PACKAGE_DIR})

# pkg-config: paths relative to the .pc file, so the same file serves any install prefix.
file(RELATIVE_PATH MAPURA_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/pv_pavo.pc.in ${CMAKE_CURRENT_BINARY_DIR}/pv_pavo.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/pv_pavo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The tool.
set_target_properties(pavo PROPERTIES INSTALL_RPATH "${_mapura_rpath}")
install(TARGETS pavo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The program, its desktop entry and its icon.
if(TARGET mapura)
  set_target_properties(mapura PROPERTIES INSTALL_RPATH "${_mapura_rpath}")
  install(TARGETS mapura RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/mapura.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/mapura.svg
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()

# The Debian package: `cpack` in the build folder (-G DEB is the default here).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mapura)
set(CPACK_PACKAGE_VENDOR "Mapura")
set(CPACK_PACKAGE_CONTACT "Mapura developers <mapura@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "3D scanner with a stereo depth camera, and the PAVO SDK")
set(CPACK_PACKAGE_DESCRIPTION
    "Mapura scans a scene into a triangle mesh or a coloured point cloud from a stereo depth camera or a KTR\n"
    "recording. The package holds the program, the pavo command-line tool and the PAVO SDK (libpv_pavo,\n"
    "its headers, CMake package and pkg-config file).")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
# Dependencies from the libraries the binaries link (dpkg-shlibdeps); the SDK library is ours.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/sdk)
include(CPack)
