# tavrofuse_build: the options that all targets of the project are compiled with. Targets of other
# projects don't inherit them.

add_library(tavrofuse_build INTERFACE)
target_compile_features(tavrofuse_build INTERFACE cxx_std_17)
target_compile_options(tavrofuse_build INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TAVROFUSE_WERROR}>:-Werror>
  # Log lines contain __FILE__: without this, the build would depend on the source folder.
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
target_link_options(tavrofuse_build INTERFACE LINKER:-z,relro,-z,now)

# Threads may have stacks of 64 KiB. Sanitizers need more.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  target_compile_options(tavrofuse_build INTERFACE -Wframe-larger-than=8192)
endif()

# Protections, unless CMAKE_CXX_FLAGS has its own: options of a target come after these flags and would
# override them.
if(NOT CMAKE_CXX_FLAGS MATCHES "stack-protector")
  target_compile_options(tavrofuse_build INTERFACE -fstack-protector-strong)
endif()
if(NOT "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_RELEASE}" MATCHES "_FORTIFY_SOURCE")
  target_compile_options(tavrofuse_build INTERFACE
    "$<$<CONFIG:Release>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
