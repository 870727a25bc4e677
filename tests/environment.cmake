# What ctest does first: the tests get an environment that is the same for everybody. What the tool
# and the programs of the tests read is not set, unless a test sets it.
foreach(name IN ITEMS
    ROCM_PATH HIP_CLANG_PATH TAVROSM_TARGET TAVROFUSE_BUNDLER
    BASH_ENV CDPATH CFLAGS CPPFLAGS CXXFLAGS DESTDIR ENV GREP_OPTIONS LANG LANGUAGE LDFLAGS MAKEFLAGS
    MAN_POSIXLY_CORRECT MANPATH POSIXLY_CORRECT PYTHONOPTIMIZE TMPDIR TZ)
  unset(ENV{${name}})
endforeach()
set(ENV{LC_ALL} C.UTF-8)
