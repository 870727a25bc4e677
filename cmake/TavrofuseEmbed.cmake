# tavrofuse_embed(TARGET <target> IMAGE <file>
#   [ARCH <arch>] [LINK] [NAME <include file>] [FATBIN <file>] [DEPENDS <target or file>...])
#
# Has the build make an include file that embeds a device image, and lets the sources of a host
# target write #include "<include file>".
#
# TARGET   the program or library whose sources have the #include
# IMAGE    the device image. A relative name is one of the source folder, or of the build folder if
#          another command of the build makes the image
# ARCH     the architecture of the image; gfx906 if not given
# LINK     the image holds linked code
# NAME     the name of the include file; without it, that of the image with the extension .inc
# FATBIN   where to keep the fat binary, relative to the build folder
# DEPENDS  what else has to be there first, such as a target of another folder that makes the image
#
# The bundler is the one in the folder TAVROFUSE_CLANG_PATH, or else in llvm/bin of
# TAVROFUSE_ROCM_PATH. With neither set, the first usable one is taken that the environment variable
# TAVROFUSE_BUNDLER names or that is in HIP_CLANG_PATH or llvm/bin of ROCM_PATH (both of the
# environment), in /opt/rocm/llvm/bin, in PATH, or in /usr/lib/llvm-*/bin, newest first. A bundler that
# refuses the arguments of tavrofuse is run through the adapter that comes with tavrofuse.
#
# The command in the build names all that the run depends on: the environment of the build has no
# influence.

# Also for projects that ask for less.
cmake_policy(VERSION 3.20)

set(TAVROFUSE_CLANG_PATH "" CACHE PATH "Folder of clang-offload-bundler, of LLVM 15 or newer")
set(TAVROFUSE_ROCM_PATH "" CACHE PATH "ROCm installation, whose llvm/bin has the bundler")
mark_as_advanced(TAVROFUSE_ROCM_PATH)

# Finds a usable bundler: sets TAVROFUSE_FOUND_FOLDER to the folder for --clang-path, that of the
# bundler or of the adapter, and TAVROFUSE_FOUND_BUNDLER to the bundler itself. If there is none, the
# first is empty and TAVROFUSE_FOUND_PROBLEM says why. What was found stays, until something else is
# asked for or it is gone.
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

# What stands for `file` on the bundler's command line, which has no quoting: no character of
# `forbidden` may be in it. Commands run in the current build folder, so that a path relative to it
# will do where the folders above have such names.
function(_tavrofuse_get_word what file forbidden result)
  if(file MATCHES "${forbidden}")
    file(RELATIVE_PATH word "${CMAKE_CURRENT_BINARY_DIR}" "${file}")
    if(word MATCHES "${forbidden}")
      message(FATAL_ERROR
        "tavrofuse_embed can't pass on the ${what} '${file}': blanks (and in an image's path also "
        "commas and equals signs) can't be told from the rest of the command line. Relative to the "
        "build folder it is '${word}', which doesn't help. Rename it or move it.")
    endif()
  else()
    set(word "${file}")
  endif()
  set(${result} "${word}" PARENT_SCOPE)
endfunction()

function(tavrofuse_embed)
  cmake_parse_arguments(PARSE_ARGV 0 arg "LINK" "TARGET;IMAGE;ARCH;NAME;FATBIN" "DEPENDS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "tavrofuse_embed doesn't know the arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "tavrofuse_embed needs a value behind: ${arg_KEYWORDS_MISSING_VALUES}")
  endif()
  if(NOT arg_TARGET OR NOT arg_IMAGE)
    message(FATAL_ERROR "tavrofuse_embed needs TARGET and IMAGE")
  endif()
  if(NOT TARGET "${arg_TARGET}")
    message(FATAL_ERROR "tavrofuse_embed: there is no target '${arg_TARGET}' (yet)")
  endif()
  if(NOT arg_ARCH)
    set(arg_ARCH gfx906)
  elseif(NOT arg_ARCH MATCHES "^[A-Za-z0-9:+-]+$")
    message(FATAL_ERROR "tavrofuse_embed: ARCH '${arg_ARCH}' is no architecture, such as gfx906")
  endif()
  if(NOT arg_NAME)
    get_filename_component(arg_NAME "${arg_IMAGE}" NAME_WLE)
    string(APPEND arg_NAME ".inc")
  elseif(arg_NAME MATCHES "/")
    message(FATAL_ERROR "tavrofuse_embed: NAME '${arg_NAME}' has to be a name without folders")
  endif()

  if(arg_IMAGE MATCHES "\\$<")
    message(FATAL_ERROR "tavrofuse_embed: IMAGE '${arg_IMAGE}' can't be a generator expression")
  endif()
  get_filename_component(image "${arg_IMAGE}" ABSOLUTE)
  if(NOT EXISTS "${image}" OR IS_DIRECTORY "${image}")
    get_filename_component(image "${arg_IMAGE}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
    get_source_file_property(is_made "${image}" GENERATED)
    if(NOT is_made AND NOT arg_DEPENDS)
      message(FATAL_ERROR
        "tavrofuse_embed: there is no image '${arg_IMAGE}' in ${CMAKE_CURRENT_SOURCE_DIR}, and "
        "nothing that makes '${image}' (a command stands ahead of tavrofuse_embed; what makes an "
        "image in another folder is named by DEPENDS)")
    endif()
  endif()

  # A folder for each target: two targets may embed the same image.
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/tavrofuse/${arg_TARGET}")
  set(include_file "${folder}/${arg_NAME}")
  if(arg_FATBIN)
    get_filename_component(fatbin "${arg_FATBIN}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
  else()
    set(fatbin "${include_file}.fatbin")
  endif()
  get_filename_component(fatbin_folder "${fatbin}" DIRECTORY)
  file(MAKE_DIRECTORY "${folder}" "${fatbin_folder}")

  _tavrofuse_find_bundler()
  if(NOT TAVROFUSE_FOUND_FOLDER)
    message(FATAL_ERROR
      "tavrofuse_embed found no clang-offload-bundler that works. It has to be of LLVM 15 or newer, from "
      "16 on with llvm-objcopy in its folder or in PATH. Install one (on Debian and Ubuntu "
      "clang-tools-19 and llvm-19, say) or set TAVROFUSE_CLANG_PATH to its folder.\n"
      "${TAVROFUSE_FOUND_PROBLEM}")
  endif()
  set(clang "${TAVROFUSE_FOUND_FOLDER}")
  set(command tavrofuse::tavrofuse)
  set(bundlers "${clang}/clang-offload-bundler")
  if(NOT TAVROFUSE_FOUND_BUNDLER STREQUAL bundlers)
    set(command "${CMAKE_COMMAND}" -E env "TAVROFUSE_BUNDLER=${TAVROFUSE_FOUND_BUNDLER}"
      "$<TARGET_FILE:tavrofuse::tavrofuse>")
    list(APPEND bundlers "${TAVROFUSE_FOUND_BUNDLER}")
  endif()
  _tavrofuse_get_word("image" "${image}" "[ ,=]" image_word)
  _tavrofuse_get_word("fat binary" "${fatbin}" " " fatbin_word)
  _tavrofuse_get_word("folder of the bundler" "${clang}" " " clang_word)
  # The ROCm installation has to exist, which is all that there is to it beside a --clang-path.
  set(rocm "${TAVROFUSE_ROCM_PATH}")
  if(NOT rocm)
    get_filename_component(rocm "${clang}" DIRECTORY)
  endif()
  set(link "")
  if(arg_LINK)
    set(link --link)
  endif()

  # With --create, nothing is made outside the build folder.
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
  # By way of a target, so that the host target may be one of another folder.
  string(MAKE_C_IDENTIFIER "${arg_TARGET}_${arg_NAME}" embedding)
  if(TARGET "${embedding}")
    message(FATAL_ERROR "tavrofuse_embed: '${arg_TARGET}' has a '${arg_NAME}' already")
  endif()
  add_custom_target("${embedding}" DEPENDS "${include_file}" "${fatbin}")
  add_dependencies("${arg_TARGET}" "${embedding}")
  target_include_directories("${arg_TARGET}" PRIVATE "${folder}")
endfunction()
