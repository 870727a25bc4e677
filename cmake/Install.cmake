# Installs the tool, a relocatable CMake package, the documentation and the examples. The library is
# installed by libbasic/install.cmake.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The tool runs on the building machine, so the package is independent of the target architecture.
set(tavrofuse_package_dir lib/cmake/tavrofuse)

install(TARGETS tavrofuse EXPORT tavrofuse
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tavrofuse)
install(EXPORT tavrofuse
  NAMESPACE tavrofuse::
  FILE tavrofuseTargets.cmake
  DESTINATION "${tavrofuse_package_dir}" COMPONENT tavrofuse)
# A bundler for --clang-path that adapts the command line for LLVM 21 and newer.
set(tavrofuse_adapter_dir "${CMAKE_INSTALL_LIBEXECDIR}/tavrofuse")
install(PROGRAMS "${PROJECT_SOURCE_DIR}/adapter/clang-offload-bundler"
  DESTINATION "${tavrofuse_adapter_dir}" COMPONENT tavrofuse)
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/tavrofuseConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/tavrofuseConfig.cmake"
  INSTALL_DESTINATION "${tavrofuse_package_dir}"
  PATH_VARS tavrofuse_adapter_dir
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tavrofuseConfigVersion.cmake"
  VERSION "${PROJECT_VERSION}"
  COMPATIBILITY SameMajorVersion
  ARCH_INDEPENDENT)
install(FILES
  "${PROJECT_BINARY_DIR}/tavrofuseConfig.cmake"
  "${PROJECT_BINARY_DIR}/tavrofuseConfigVersion.cmake"
  "${PROJECT_SOURCE_DIR}/cmake/TavrofuseEmbed.cmake"
  DESTINATION "${tavrofuse_package_dir}" COMPONENT tavrofuse)

# In the same folders as in the source tree, so that links between the pages work.
install(FILES README.md ARCHITECTURE.md CONTRIBUTING.md RELEASING.md SECURITY.md
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT tavrofuse)
install(DIRECTORY docs
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT tavrofuse
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN pictures EXCLUDE)
# By name, because the folders may contain build results.
foreach(example IN ITEMS
    bazel/.bazelrc bazel/BUILD bazel/README.md bazel/WORKSPACE bazel/tavrofuse.bzl
    cmake/CMakeLists.txt embed/host.c embed/kernel.cl make/Makefile ninja/build.ninja)
  get_filename_component(folder "${example}" DIRECTORY)
  install(FILES "examples/${example}"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples/${folder}" COMPONENT tavrofuse)
endforeach()
install(PROGRAMS examples/bazel/show
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples/bazel" COMPONENT tavrofuse)
