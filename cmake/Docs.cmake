# The target tavrofuse_docs: the library's reference, as HTML in docs/html of the build folder. Warnings
# are errors, so that every public operation is documented.

find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  leave_out("reference documentation" "needs Doxygen")
  return()
endif()

set(DOXYGEN_PROJECT_NAME libbasic)
get_target_property(DOXYGEN_PROJECT_NUMBER libbasic VERSION)
set(DOXYGEN_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/docs")
set(DOXYGEN_STRIP_FROM_PATH "${PROJECT_SOURCE_DIR}/libbasic/include")
set(DOXYGEN_STRIP_FROM_INC_PATH "${PROJECT_SOURCE_DIR}/libbasic/include")
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE "${PROJECT_SOURCE_DIR}/docs/libbasic.md")
# The first sentence is the summary.
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_EXTRACT_ALL NO)
set(DOXYGEN_HIDE_UNDOC_MEMBERS NO)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
# Parameters that the operation's comment explains need no entry.
set(DOXYGEN_WARN_IF_INCOMPLETE_DOC NO)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_GENERATE_LATEX NO)
set(DOXYGEN_HAVE_DOT NO)

doxygen_add_docs(tavrofuse_docs
  "${PROJECT_SOURCE_DIR}/libbasic/include"
  "${PROJECT_SOURCE_DIR}/docs/libbasic.md")
