# Installs the man page, made from docs/tavrofuse.1.in, and the completions of shells.

include(GNUInstallDirs)

# The date of the page is that of the version, so that the page is reproducible. If SOURCE_DATE_EPOCH
# is set, string(TIMESTAMP) returns it.
if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  string(TIMESTAMP MAN_DATE "%Y-%m-%d" UTC)
else()
  set(VERSION "${PROJECT_VERSION}")
  include(cmake/VersionDate.cmake)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${changelog}")
  set(MAN_DATE "${version_date}")
endif()

set(TAVROFUSE_MANUAL "${PROJECT_BINARY_DIR}/docs/tavrofuse.1")
configure_file("${PROJECT_SOURCE_DIR}/docs/tavrofuse.1.in" "${TAVROFUSE_MANUAL}" @ONLY)

install(FILES "${TAVROFUSE_MANUAL}"
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tavrofuse)
install(FILES "${PROJECT_SOURCE_DIR}/completions/tavrofuse"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tavrofuse)
install(FILES "${PROJECT_SOURCE_DIR}/completions/_tavrofuse"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" COMPONENT tavrofuse)
install(FILES "${PROJECT_SOURCE_DIR}/completions/tavrofuse.fish"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT tavrofuse)
