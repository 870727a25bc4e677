# Run by cpack ahead of packing: gives Debian packages what Debian asks of each, the copyright file,
# the change logs and compressed manual pages.

if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
if(NOT CPACK_PACKAGE_CONTACT MATCHES "^.+ <.+@.+>$")
  message(FATAL_ERROR "A Debian package needs -DTAVROFUSE_MAINTAINER='Name <address>'")
endif()

function(compress file)
  execute_process(COMMAND gzip -9nf "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The day of this version, as Debian writes it.
file(STRINGS "${CPACK_TAVROFUSE_SOURCE_DIR}/CHANGELOG.md" headings REGEX "^## \\[")
if(NOT headings MATCHES "\\[${CPACK_PACKAGE_VERSION}\\] - ([0-9]+)(-[0-9]+-[0-9]+)")
  message(FATAL_ERROR "CHANGELOG.md has no date for version ${CPACK_PACKAGE_VERSION}")
endif()
set(year "${CMAKE_MATCH_1}")
execute_process(
  COMMAND "${CMAKE_COMMAND}" -E env LC_ALL=C date -u -R -d "${year}${CMAKE_MATCH_2}"
  OUTPUT_VARIABLE date
  OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER "${component}" upper)
  set(package "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  set(share "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share")
  set(doc "${share}/doc/${package}")

  file(WRITE "${doc}/copyright" "tavrofuse and libbasic

Copyright ${year} the tavrofuse maintainers

No licence has been chosen for this program yet. Until there is one, it may
be used, copied, changed and passed on only with the permission of its
maintainers.

This package was made from the source tree of tavrofuse by its own packaging,
cmake/Packaging.cmake.
")
  configure_file("${CPACK_TAVROFUSE_SOURCE_DIR}/CHANGELOG.md" "${doc}/changelog" COPYONLY)
  file(WRITE "${doc}/changelog.Debian" "\
tavrofuse (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Release of ${CPACK_PACKAGE_VERSION}; the file changelog tells what is new.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
  compress("${doc}/changelog")
  compress("${doc}/changelog.Debian")
  file(GLOB pages "${share}/man/man*/*.[1-9]")
  foreach(page IN LISTS pages)
    compress("${page}")
  endforeach()

  # The same for everybody, whatever the umask of who packages.
  execute_process(
    COMMAND chmod -R u=rwX,go=rX "${CPACK_TEMPORARY_DIRECTORY}/${component}"
    COMMAND_ERROR_IS_FATAL ANY)
  # The same source gives the same package.
  if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
    execute_process(
      COMMAND find "${CPACK_TEMPORARY_DIRECTORY}/${component}"
        -exec touch -h -d "@$ENV{SOURCE_DATE_EPOCH}" {} +
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
