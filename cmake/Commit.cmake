# Run by the build (cmake -P) when the checkout may have moved to another commit. Writes into DIR:
#
# build_info.h  build_info.h.in with the commit; not touched if it is unchanged, so that nothing is
#               recompiled
# commit        an empty file, newer than the files that the commit was read from
# commit.d      a depfile that makes `commit` depend on these files
#
# SOURCE_DIR is the root of the source tree.

find_program(GIT git)

# git(RESULT ARGUMENT...): sets RESULT to the output of git, or to nothing if it fails.
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

# A source tree inside another project's checkout has no commit.
set(commit "")
set(sources "")
git(answer rev-parse --show-cdup --absolute-git-dir)
if(answer MATCHES "^\n(.+)$")
  set(dir "${CMAKE_MATCH_1}")
  git(commit rev-parse --verify --quiet HEAD)
  git(common rev-parse --git-common-dir)
  get_filename_component(common "${common}" ABSOLUTE BASE_DIR "${SOURCE_DIR}")
  # Git replaces the file of a branch at each commit, which changes its folder. The file itself may
  # disappear, when git moves its content to packed-refs; so may a folder below refs/heads.
  git(branch symbolic-ref --quiet HEAD)
  set(branch "${common}/${branch}")
  while(NOT IS_DIRECTORY "${branch}")
    get_filename_component(branch "${branch}" DIRECTORY)
  endwhile()
  set(sources "${dir}/HEAD" "${branch}")
  # The other storage format of branches.
  foreach(folder IN ITEMS "${dir}/reftable" "${common}/reftable")
    if(EXISTS "${folder}")
      list(APPEND sources "${folder}")
    endif()
  endforeach()
elseif(EXISTS "${SOURCE_DIR}/COMMIT")
  # A source archive: git archive has written the commit.
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
