// timed BYTES FILE COMMAND [ARGUMENT]... [| COMMAND [ARGUMENT]...]
//
// Uses BYTES of memory and gives them back, so that a virtual machine has them at hand.
// Runs one command, or two with a pipe between them, with the last one's output in FILE. Prints how
// long that took (nanoseconds), how much memory the last one held at its peak (KiB) and 0, or the
// wait status of the command that failed.
//
// A program of its own because a child's peak begins with that of the process it was started from,
// and because an interpreter's own work between start and end would count.

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

[[noreturn]] void Fail(const char* what, int error) {
  fprintf(stderr, "%s: %s\n", what, strerror(error));
  exit(EXIT_FAILURE);
}

// In a child, so that this memory does not count as the measured program's.
void TouchMemory(size_t size) {
  const pid_t pid = size > 0 ? fork() : -1;
  if (pid == 0) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) {
      madvise(memory, size, MADV_HUGEPAGE);
      for (size_t at = 0; at < size; at += 4096) {
        static_cast<volatile char*>(memory)[at] = 1;
      }
    }
    _exit(EXIT_SUCCESS);
  }
  if (pid > 0) {
    waitpid(pid, nullptr, 0);
  }
}

pid_t Start(char** command, int input, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, command[0], &actions, nullptr, command, environ);
  if (error != 0) {
    Fail(command[0], error);
  }
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    Fail(argv[0], EINVAL);
  }
  char** second = argv + 3;
  while (*second != nullptr && strcmp(*second, "|") != 0) {
    ++second;
  }
  const bool is_pipe = *second != nullptr;
  *second = nullptr;
  const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int output = open(argv[2], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int ends[2] = {input, output};
  if (input < 0 || output < 0 || (is_pipe && pipe2(ends, O_CLOEXEC) != 0)) {
    Fail(argv[2], errno);
  }
  TouchMemory(strtoull(argv[1], nullptr, 10));

  timespec begin = {};
  timespec end = {};
  rusage usage = {};
  int first_status = 0;
  int status = 0;
  clock_gettime(CLOCK_MONOTONIC, &begin);
  const pid_t first_pid = Start(argv + 3, input, ends[1]);
  if (is_pipe) {
    const pid_t pid = Start(second + 1, ends[0], output);
    close(ends[0]);
    close(ends[1]);
    wait4(pid, &status, 0, &usage);
    waitpid(first_pid, &first_status, 0);
  } else {
    wait4(first_pid, &status, 0, &usage);
  }
  clock_gettime(CLOCK_MONOTONIC, &end);
  printf(
      "%lld %ld %d\n",
      static_cast<long long>(end.tv_sec - begin.tv_sec) * 1000000000 + end.tv_nsec - begin.tv_nsec,
      usage.ru_maxrss, status != 0 ? status : first_status);
  return EXIT_SUCCESS;
}
