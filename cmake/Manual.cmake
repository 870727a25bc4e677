# The man page, made from docs/tavrofuse.1.in, and the completion for shells.

include(GNUInstallDirs)

# The page is dated like its version, so that the same source gives the same page. CMake takes the
# time from SOURCE_DATE_EPOCH where that is set.
set(changelog "${PROJECT_SOURCE_DIR}/CHANGELOG.md")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${changelog}")
file(STRINGS "${changelog}" headings REGEX "^## \\[")
if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  string(TIMESTAMP MAN_DATE "%Y-%m-%d" UTC)
elseif("${headings}" MATCHES "\\[${PROJECT_VERSION}\\] - ([0-9]+-[0-9]+-[0-9]+)")
  set(MAN_DATE "${CMAKE_MATCH_1}")
else()
  message(FATAL_ERROR "CHANGELOG.md has no date for version ${PROJECT_VERSION}")
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
