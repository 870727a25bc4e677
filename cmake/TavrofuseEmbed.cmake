# tavrofuse_embed(TARGET <target> IMAGE <file>
#   [ARCH <arch>] [LINK] [NAME <include file>] [FATBIN <file>] [DEPENDS <target or file>...])
#
# Adds a command that makes an include file with an embedded device image, and lets the sources of a
# target write #include "<include file>".
#
# TARGET   the program or library whose sources have the #include
# IMAGE    the device image. A relative name is one of the source folder, or of the build folder if
#          another command of the build makes the image
# ARCH     the architecture of the image; default: gfx906
# LINK     the image holds linked code
# NAME     the name of the include file; default: the name of the image with the extension .inc
# FATBIN   where to keep the fat binary, relative to the build folder
# DEPENDS  further dependencies, such as a target of another folder that makes the image
#
# The bundler is the one in the folder TAVROFUSE_CLANG_PATH, or else in llvm/bin of
# TAVROFUSE_ROCM_PATH. If neither is set, it is the first usable one that the environment variable
# TAVROFUSE_BUNDLER names or that is in HIP_CLANG_PATH or llvm/bin of ROCM_PATH (both of the
# environment), in /opt/rocm/llvm/bin, in PATH, or in /usr/lib/llvm-*/bin, newest first. A bundler that
# refuses the arguments of tavrofuse is run through the adapter that comes with tavrofuse.
#
# The command passes everything that the run depends on, so the environment of the build has no
# effect.

# For projects that require an older version.
cmake_policy(VERSION 3.20)

set(TAVROFUSE_CLANG_PATH "" CACHE PATH "Folder of clang-offload-bundler, of LLVM 15 or newer")
set(TAVROFUSE_ROCM_PATH "" CACHE PATH "ROCm installation, whose llvm/bin has the bundler")
mark_as_advanced(TAVROFUSE_ROCM_PATH)

# Finds a usable bundler: sets TAVROFUSE_FOUND_FOLDER to the folder for --clang-path, that of the
# bundler or of the adapter, and TAVROFUSE_FOUND_BUNDLER to the bundler itself. If there is none, the
# first is empty and TAVROFUSE_FOUND_PROBLEM says why. The result is cached until another bundler is
# asked for, or this one has been removed.
function(_tavrofuse_find_bundler)
  set(asked "${TAVROFUSE_CLANG_PATH}|${TAVROFUSE_ROCM_PATH}")
  if(asked STREQUAL TAVROFUSE_FOUND_FOR AND EXISTS "${TAVROFUSE_FOUND_BUNDLER}"
      AND EXISTS "${TAVROFUSE_FOUND_FOLDER}/clang-offload-bundler")
    return()
  endif()
  set(folder "")
  if(TAVROFUSE_CLANG_PATH)
    set(folder "${TAVROFUSE_CLANG_PATH}")
  elseif(TAVROFUSE_ROCM_PATH)
    set(folder "${TAVROFUSE_ROCM_PATH}/llvm/bin")
  endif()
  get_target_property(adapter tavrofuse::adapter IMPORTED_LOCATION)
  execute_process(
    COMMAND "${adapter}" --tavrofuse-find ${folder}
    WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}"
    RESULT_VARIABLE status OUTPUT_VARIABLE found ERROR_VARIABLE problem)
  set(folder "")
  set(bundler "")
  if(status EQUAL 0 AND found MATCHES "^([^\n]+)\n([^\n]+)\n$")
    get_filename_component(folder "${CMAKE_MATCH_1}" ABSOLUTE)
    get_filename_component(bundler "${CMAKE_MATCH_2}" ABSOLUTE)
    set(how "")
    if(NOT bundler STREQUAL "${folder}/clang-offload-bundler")
      set(how ", through the adapter in ${folder}")
    endif()
    message(STATUS "Embedding with ${bundler}${how}")
  endif()
  set(TAVROFUSE_FOUND_FOR "${asked}" CACHE INTERNAL "")
  set(TAVROFUSE_FOUND_FOLDER "${folder}" CACHE INTERNAL "")
  set(TAVROFUSE_FOUND_BUNDLER "${bundler}" CACHE INTERNAL "")
  set(TAVROFUSE_FOUND_PROBLEM "${problem}" CACHE INTERNAL "")
endfunction()

# Sets `result` to `file` as a word of the bundler's command line. It has no quoting, so a word must
# not contain a character of `forbidden`. Commands run in the current build folder: a path relative to
# it helps if only the folders above have such names.
function(_tavrofuse_get_word what file forbidden result)
  set(word "${file}")
  if(word MATCHES "${forbidden}")
    file(RELATIVE_PATH word "${CMAKE_CURRENT_BINARY_DIR}" "${file}")
  endif()
  if(word MATCHES "${forbidden}")
    message(FATAL_ERROR
      "tavrofuse_embed can't pass on the ${what} '${file}': the bundler's command line has no quoting "
      "for blanks (and in an image's path, for commas and equals signs). The path relative to the "
      "build folder, '${word}', contains them too. Rename it or move it.")
  endif()
  set(${result} "${word}" PARENT_SCOPE)
endfunction()

# The three steps of tavrofuse_embed. They read its variables arg_...

# Checks the arguments. Sets the defaults of arg_ARCH and arg_NAME.
function(_tavrofuse_check_arguments)
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "tavrofuse_embed doesn't know the arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "tavrofuse_embed needs a value after: ${arg_KEYWORDS_MISSING_VALUES}")
  endif()
  if(NOT arg_TARGET OR NOT arg_IMAGE)
    message(FATAL_ERROR "tavrofuse_embed needs TARGET and IMAGE")
  endif()
  if(NOT TARGET "${arg_TARGET}")
    message(FATAL_ERROR "tavrofuse_embed: there is no target '${arg_TARGET}' (yet)")
  endif()
  if(arg_IMAGE MATCHES "\\$<")
    message(FATAL_ERROR "tavrofuse_embed: IMAGE '${arg_IMAGE}' can't be a generator expression")
  endif()
  if(NOT arg_ARCH)
    set(arg_ARCH gfx906 PARENT_SCOPE)
  elseif(NOT arg_ARCH MATCHES "^[A-Za-z0-9:+-]+$")
    message(FATAL_ERROR "tavrofuse_embed: ARCH '${arg_ARCH}' is no architecture, such as gfx906")
  endif()
  if(NOT arg_NAME)
    get_filename_component(name "${arg_IMAGE}" NAME_WLE)
    set(arg_NAME "${name}.inc" PARENT_SCOPE)
  elseif(arg_NAME MATCHES "/")
    message(FATAL_ERROR "tavrofuse_embed: NAME '${arg_NAME}' has to be a name without folders")
  endif()
endfunction()

# Finds the image and the bundler. Sets `image` to the path of the image, TAVROFUSE_FOUND_FOLDER and
# TAVROFUSE_FOUND_BUNDLER.
function(_tavrofuse_find_inputs)
  get_filename_component(image "${arg_IMAGE}" ABSOLUTE)
  if(NOT EXISTS "${image}" OR IS_DIRECTORY "${image}")
    get_filename_component(image "${arg_IMAGE}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
    get_source_file_property(is_made "${image}" GENERATED)
    if(NOT is_made AND NOT arg_DEPENDS)
      message(FATAL_ERROR
        "tavrofuse_embed: there is no image '${arg_IMAGE}' in ${CMAKE_CURRENT_SOURCE_DIR}, and no "
        "command that makes '${image}'. Such a command has to come before tavrofuse_embed; one in "
        "another folder needs DEPENDS.")
    endif()
  endif()
  _tavrofuse_find_bundler()
  if(NOT TAVROFUSE_FOUND_FOLDER)
    message(FATAL_ERROR
      "tavrofuse_embed found no clang-offload-bundler that works. It has to be of LLVM 15 or newer, from "
      "16 on with llvm-objcopy in its folder or in PATH. Install one (on Debian and Ubuntu, for "
      "example, clang-tools-19 and llvm-19), or set TAVROFUSE_CLANG_PATH to its folder.\n"
      "${TAVROFUSE_FOUND_PROBLEM}")
  endif()
  set(image "${image}" PARENT_SCOPE)
endfunction()

# Adds the command that makes the include file from `image`, and its target, on which the target of
# the caller depends.
function(_tavrofuse_add_command)
  # A folder for each target: two targets may embed the same image.
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/tavrofuse/${arg_TARGET}")
  set(include_file "${folder}/${arg_NAME}")
  set(fatbin "${include_file}.fatbin")
  if(arg_FATBIN)
    get_filename_component(fatbin "${arg_FATBIN}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
  endif()
  get_filename_component(fatbin_folder "${fatbin}" DIRECTORY)
  file(MAKE_DIRECTORY "${folder}" "${fatbin_folder}")

  set(command tavrofuse::tavrofuse)
  set(bundlers "${TAVROFUSE_FOUND_FOLDER}/clang-offload-bundler")
  if(NOT TAVROFUSE_FOUND_BUNDLER STREQUAL bundlers)
    set(command "${CMAKE_COMMAND}" -E env "TAVROFUSE_BUNDLER=${TAVROFUSE_FOUND_BUNDLER}"
      "$<TARGET_FILE:tavrofuse::tavrofuse>")
    list(APPEND bundlers "${TAVROFUSE_FOUND_BUNDLER}")
  endif()
  _tavrofuse_get_word("image" "${image}" "[ ,=]" image_word)
  _tavrofuse_get_word("fat binary" "${fatbin}" " " fatbin_word)
  _tavrofuse_get_word("folder of the bundler" "${TAVROFUSE_FOUND_FOLDER}" " " clang_word)
  # With --clang-path, the ROCm installation only has to exist.
  set(rocm "${TAVROFUSE_ROCM_PATH}")
  if(NOT rocm)
    get_filename_component(rocm "${TAVROFUSE_FOUND_FOLDER}" DIRECTORY)
  endif()
  set(link "")
  if(arg_LINK)
    set(link --link)
  endif()

  # With --create, the run writes nothing outside the build folder.
  add_custom_command(
    OUTPUT "${include_file}" "${fatbin}"
    COMMAND ${command}
      "--image3=kind=elf,sm=${arg_ARCH},file=${image_word}"
      "--offload-arch=${arg_ARCH}"
      ${link}
      "--create=${fatbin_word}"
      "--embedded-fatbin=${include_file}"
      "--rocm-path=${rocm}"
      "--clang-path=${clang_word}"
    DEPENDS
      "${image}"
      "$<TARGET_FILE:tavrofuse::tavrofuse>"
      ${bundlers}
      ${arg_DEPENDS}
    WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}"
    COMMENT "Embedding ${arg_IMAGE} for ${arg_TARGET}"
    VERBATIM)
  # The host target may be one of another folder, so it depends on a target, not on the file.
  string(MAKE_C_IDENTIFIER "${arg_TARGET}_${arg_NAME}" embedding)
  if(TARGET "${embedding}")
    message(FATAL_ERROR "tavrofuse_embed: '${arg_TARGET}' has a '${arg_NAME}' already")
  endif()
  add_custom_target("${embedding}" DEPENDS "${include_file}" "${fatbin}")
  add_dependencies("${arg_TARGET}" "${embedding}")
  target_include_directories("${arg_TARGET}" PRIVATE "${folder}")
endfunction()

function(tavrofuse_embed)
  cmake_parse_arguments(PARSE_ARGV 0 arg "LINK" "TARGET;IMAGE;ARCH;NAME;FATBIN" "DEPENDS")
  _tavrofuse_check_arguments()
  _tavrofuse_find_inputs()
  _tavrofuse_add_command()
endfunction()
