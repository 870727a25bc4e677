# What cpack makes: packages for Debian and its relatives, one for the tool and one for the library,
# and an archive with everything for others. scripts/package builds them as they are released.

set(TAVROFUSE_MAINTAINER "" CACHE STRING "Who stands for the Debian packages: Name <address>")

set(CPACK_GENERATOR TGZ)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_VENDOR tavrofuse)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "${TAVROFUSE_MAINTAINER}")
set(CPACK_PACKAGE_FILE_NAME "tavrofuse-${PROJECT_VERSION}-linux-x86_64")
# Whatever the umask of who packages.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL tavrofuse libbasic)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Each package has a first line of its own, and it would be put ahead of that.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")

set(CPACK_DEBIAN_TAVROFUSE_PACKAGE_NAME tavrofuse)
set(CPACK_DEBIAN_TAVROFUSE_PACKAGE_SHLIBDEPS ON)
# Not a dependency: an installation of ROCm brings a bundler of its own.
set(CPACK_DEBIAN_TAVROFUSE_PACKAGE_RECOMMENDS
  "clang-tools-19 | clang-tools-16 | clang-tools-15, llvm-19 | llvm")
set(CPACK_COMPONENT_TAVROFUSE_DESCRIPTION "embed a device image in a host object
The step of a device compilation that has clang-offload-bundler make a fat
binary from a device image, and writes a C include file that places its bytes
in a section of the host object, with a descriptor that points at them.

A device compiler driver runs it once per compilation; build systems can use
it through its CMake package.")

set(CPACK_DEBIAN_LIBBASIC_PACKAGE_NAME libbasic-dev)
set(CPACK_DEBIAN_LIBBASIC_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_LIBBASIC_DESCRIPTION "support library for C++17 programs
Command lines, logging, child processes, files, paths, time and strings: the
library below tavrofuse, as headers and an archive to link statically, with a
CMake package and a pkg-config file.")

set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/FinishDeb.cmake")
set(CPACK_TAVROFUSE_SOURCE_DIR "${PROJECT_SOURCE_DIR}")

include(CPack)
