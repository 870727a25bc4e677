# Run by the build (cmake -P) when the checkout may have moved to another commit. Writes into DIR:
#
# build_info.h  build_info.h.in with the commit; untouched if it is the same, so that nothing is
#               compiled again
# commit        an empty file, newer than all that the commit was looked up in
# commit.d      what that was, as a depfile of `commit`
#
# SOURCE_DIR is the root of the source tree.

find_program(GIT git)

# git(RESULT ARGUMENT...): what git prints, or nothing if it fails.
function(git result)
  set(output "")
  if(GIT)
    execute_process(
      COMMAND "${GIT}" -c "safe.directory=*" ${ARGN}
      WORKING_DIRECTORY "${SOURCE_DIR}"
      OUTPUT_VARIABLE output
      OUTPUT_STRIP_TRAILING_WHITESPACE
      ERROR_QUIET)
  endif()
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

# A tree below somebody else's checkout has no commit of its own.
set(commit "")
set(sources "")
git(answer rev-parse --show-cdup --absolute-git-dir)
if(answer MATCHES "^\n(.+)$")
  set(dir "${CMAKE_MATCH_1}")
  git(commit rev-parse --verify --quiet HEAD)
  git(common rev-parse --git-common-dir)
  get_filename_component(common "${common}" ABSOLUTE BASE_DIR "${SOURCE_DIR}")
  # Git replaces the file of a branch at each commit, which its folder shows. The file itself may
  # vanish: its content then is in packed-refs. So may the folder, if it is not refs/heads.
  git(branch symbolic-ref --quiet HEAD)
  set(branch "${common}/${branch}")
  while(NOT IS_DIRECTORY "${branch}")
    get_filename_component(branch "${branch}" DIRECTORY)
  endwhile()
  set(sources "${dir}/HEAD" "${branch}")
  # The other format that git can keep branches in.
  foreach(folder IN ITEMS "${dir}/reftable" "${common}/reftable")
    if(EXISTS "${folder}")
      list(APPEND sources "${folder}")
    endif()
  endforeach()
elseif(EXISTS "${SOURCE_DIR}/COMMIT")
  # A source archive: git archive has put the commit there.
  file(STRINGS "${SOURCE_DIR}/COMMIT" commit LIMIT_COUNT 1)
  set(sources "${SOURCE_DIR}/COMMIT")
endif()
string(LENGTH "${commit}" length)
if(NOT length EQUAL 40 OR NOT commit MATCHES "^[0-9a-f]+$")
  string(REPEAT "0" 40 commit)
endif()

configure_file("${DIR}/build_info.h.in" "${DIR}/build_info.h")
list(TRANSFORM sources REPLACE "([ #])" "\\\\\\1")
list(JOIN sources " " sources)
string(REGEX REPLACE "([ #])" "\\\\\\1" target "${DIR}/commit")
file(WRITE "${DIR}/commit.d" "${target}: ${sources}\n")
file(TOUCH "${DIR}/commit")
