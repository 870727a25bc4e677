# Generates build_info.h, which identifies the build, by the target tavrofuse_build_info. Sets
# build_info_dir to the folder of the header.

set(build_info_dir "${PROJECT_BINARY_DIR}/build_info")

# The time comes from the compiler, unless SOURCE_DATE_EPOCH is set: not all compilers support it.
set(date "__DATE__")
set(time "__TIME__")
if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  string(TIMESTAMP date "\"%b %d %Y\"" UTC)
  string(TIMESTAMP time "\"%H:%M:%S\"" UTC)
  # __DATE__ pads a day below 10 with a blank.
  string(REGEX REPLACE " 0([0-9]) " "  \\1 " date "${date}")
endif()

# Commit.cmake fills in the commit.
file(CONFIGURE OUTPUT "${build_info_dir}/build_info.h.in" @ONLY NEWLINE_STYLE UNIX CONTENT [[
#ifndef BUILD_INFO_H_
#define BUILD_INFO_H_

#define BUILD_INFO_DATE @date@
#define BUILD_INFO_TIME @time@
#define BUILD_INFO_COMMIT "${commit}"

#endif  // BUILD_INFO_H_
]])

add_custom_command(
  OUTPUT "${build_info_dir}/commit"
  BYPRODUCTS "${build_info_dir}/build_info.h"
  COMMAND "${CMAKE_COMMAND}" "-DSOURCE_DIR=${PROJECT_SOURCE_DIR}" "-DDIR=${build_info_dir}"
    -P "${PROJECT_SOURCE_DIR}/cmake/Commit.cmake"
  DEPENDS "${build_info_dir}/build_info.h.in" "${PROJECT_SOURCE_DIR}/cmake/Commit.cmake"
  DEPFILE "${build_info_dir}/commit.d"
  COMMENT "Looking up the commit"
  VERBATIM)
add_custom_target(tavrofuse_build_info DEPENDS "${build_info_dir}/commit")
