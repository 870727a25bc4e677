# Installs the headers in their own folder, the archive, a CMake package and a pkg-config file. The
# installed tree can be moved.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(templates "${CMAKE_CURRENT_LIST_DIR}/../cmake")
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/libbasic")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

set_target_properties(libbasic PROPERTIES EXPORT_NAME libbasic VERSION "${libbasic_VERSION}")
install(TARGETS libbasic EXPORT libbasic
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libbasic
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY "${CMAKE_CURRENT_LIST_DIR}/include/"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/libbasic" COMPONENT libbasic
  FILES_MATCHING PATTERN "*.h")

install(EXPORT libbasic
  NAMESPACE libbasic::
  FILE libbasicTargets.cmake
  DESTINATION "${package_dir}" COMPONENT libbasic)
configure_package_config_file("${templates}/libbasicConfig.cmake.in" libbasicConfig.cmake
  INSTALL_DESTINATION "${package_dir}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/libbasicConfigVersion.cmake"
  VERSION "${libbasic_VERSION}"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/libbasicConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/libbasicConfigVersion.cmake"
  DESTINATION "${package_dir}" COMPONENT libbasic)

# The .pc file is relocatable. The relative paths also work if folders were configured as absolute.
file(RELATIVE_PATH pc_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
file(RELATIVE_PATH pc_libdir "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH pc_includedir "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file("${templates}/libbasic.pc.in" libbasic.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/libbasic.pc"
  DESTINATION "${pkgconfig_dir}" COMPONENT libbasic)
