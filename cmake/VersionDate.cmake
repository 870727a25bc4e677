# Sets version_date to the date of VERSION in CHANGELOG.md, such as 2026-11-22. With cmake -P, it prints
# the date.

set(changelog "${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md")
file(STRINGS "${changelog}" headings REGEX "^## \\[")
if(NOT "${headings}" MATCHES "\\[${VERSION}\\] - ([0-9]+-[0-9]+-[0-9]+)")
  message(FATAL_ERROR "CHANGELOG.md has no date for version ${VERSION}")
endif()
set(version_date "${CMAKE_MATCH_1}")
if(CMAKE_SCRIPT_MODE_FILE)
  execute_process(COMMAND "${CMAKE_COMMAND}" -E echo "${version_date}")
endif()
