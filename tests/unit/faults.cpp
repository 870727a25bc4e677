#include "faults.h"

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

static const char* s_failing_call = "";
static int s_error = 0;
static bool s_has_happened = false;

Fault::Fault(const char* call, int error) {
  s_failing_call = call;
  s_error = error;
  s_has_happened = false;
}

Fault::~Fault() { s_failing_call = ""; }

bool Fault::HasHappened() const { return s_has_happened; }

static bool Fails(const char* call) {
  if (strcmp(call, s_failing_call) != 0) {
    return false;
  }
  errno = s_error;
  s_has_happened = true;
  return true;
}

// WRAP(RESULT, CALL, PARAMETERS, ARGUMENTS)
#define WRAP(result, call, parameters, arguments) \
  extern "C" result __real_##call parameters;     \
  extern "C" result __wrap_##call parameters { return Fails(#call) ? -1 : __real_##call arguments; }

WRAP(int, pipe2, (int* ends, int flags), (ends, flags))
WRAP(int, fcntl, (int fd, int command, long value), (fd, command, value))
WRAP(int, dup2, (int from, int to), (from, to))
WRAP(ssize_t, read, (int fd, void* data, size_t size), (fd, data, size))
WRAP(int, renameat, (int from, const char* old_name, int to, const char* new_name),
     (from, old_name, to, new_name))
WRAP(int, getentropy, (void* data, size_t size), (data, size))
WRAP(int, kill, (pid_t pid, int number), (pid, number))

// Only for a new file.
extern "C" int __real_openat(int directory, const char* file, int flags, mode_t mode);
extern "C" int __wrap_openat(int directory, const char* file, int flags, mode_t mode) {
  return (flags & O_CREAT) != 0 && Fails("openat") ? -1
                                                   : __real_openat(directory, file, flags, mode);
}

// An allocation that may fail: `new` with an alignment and `std::nothrow`.
extern "C" void* __real__ZnwmSt11align_val_tRKSt9nothrow_t(size_t size, size_t, const void*);
extern "C" void* __wrap__ZnwmSt11align_val_tRKSt9nothrow_t(size_t size, size_t alignment,
                                                           const void* nothrow) {
  return Fails("new") ? nullptr
                      : __real__ZnwmSt11align_val_tRKSt9nothrow_t(size, alignment, nothrow);
}

extern "C" FILE* __real_fopen(const char* file, const char* mode);
extern "C" FILE* __wrap_fopen(const char* file, const char* mode) {
  return Fails("fopen") ? nullptr : __real_fopen(file, mode);
}

// Fails after what it has read. Writing to a stream for reading sets its error mark.
extern "C" size_t __real_fread(void* data, size_t size, size_t count, FILE* stream);
extern "C" size_t __wrap_fread(void* data, size_t size, size_t count, FILE* stream) {
  const size_t read = __real_fread(data, size, count, stream);
  if (Fails("fread")) {
    fputc('x', stream);
    errno = s_error;
  }
  return read;
}

// The stream is gone in any case.
extern "C" int __real_fclose(FILE* stream);
extern "C" int __wrap_fclose(FILE* stream) {
  const int result = __real_fclose(stream);
  return Fails("fclose") ? EOF : result;
}
