# Run at each build (cmake -P): writes OUTPUT, the header that tells which build this is. It is left
# alone when nothing changed, so that nothing is compiled again.
#
# SOURCE_DIR  the root of the source tree
# OUTPUT      the header

# The commit: that of the checkout whose root SOURCE_DIR is; in a source archive the one that
# git archive put into the file COMMIT; else zeros.
set(commit "")
find_program(GIT_EXECUTABLE git)
if(GIT_EXECUTABLE)
  execute_process(
    COMMAND "${GIT_EXECUTABLE}" -c "safe.directory=*" rev-parse --show-prefix HEAD
    WORKING_DIRECTORY "${SOURCE_DIR}"
    OUTPUT_VARIABLE answer
    ERROR_QUIET)
  # An empty prefix, and so an empty first line: a tree below somebody else's checkout has none of
  # its own.
  if(answer MATCHES "^\n([0-9a-f]+)\n$")
    set(commit "${CMAKE_MATCH_1}")
  endif()
endif()
if(commit STREQUAL "" AND EXISTS "${SOURCE_DIR}/COMMIT")
  file(STRINGS "${SOURCE_DIR}/COMMIT" commit LIMIT_COUNT 1)
endif()
string(LENGTH "${commit}" length)
if(NOT length EQUAL 40 OR NOT commit MATCHES "^[0-9a-f]+$")
  string(REPEAT "0" 40 commit)
endif()

# The time comes from the compiler. Compilers that know SOURCE_DATE_EPOCH would do the same with it
# as is done here, but not all do.
set(date "__DATE__")
set(time "__TIME__")
if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  string(TIMESTAMP date "\"%b %d %Y\"" UTC)
  string(TIMESTAMP time "\"%H:%M:%S\"" UTC)
  # As __DATE__ has it: a day below 10 with a blank.
  string(REGEX REPLACE " 0([0-9]) " "  \\1 " date "${date}")
endif()

file(CONFIGURE OUTPUT "${OUTPUT}" @ONLY NEWLINE_STYLE UNIX CONTENT [[
#ifndef BUILD_INFO_H_
#define BUILD_INFO_H_

#define BUILD_INFO_DATE @date@
#define BUILD_INFO_TIME @time@
#define BUILD_INFO_COMMIT "@commit@"

#endif  // BUILD_INFO_H_
]])
