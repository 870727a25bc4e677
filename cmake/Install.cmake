# The tool. What the library installs stands in libbasic/install.cmake.

include(GNUInstallDirs)

install(TARGETS tavrofuse
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tavrofuse)
