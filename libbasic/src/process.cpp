#include "process.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <vector>

#include "misc.h"

namespace util {
namespace {

constexpr size_t kChunkSize = 4096;
constexpr size_t kReadSize = 16 * kChunkSize;
constexpr int kPipeSize = 64 * kChunkSize;
constexpr uint64_t kMillisecondsPerSecond = 1000;
constexpr uint64_t kMicrosecondsPerMillisecond = 1000;
constexpr int kKilledBySignal9 = 9;  // as a raw wait status

// One end of a pipe, closed when it goes out of scope.
class PipeEnd {
 public:
  PipeEnd() = default;
  ~PipeEnd() { Close(); }
  PipeEnd(const PipeEnd&) = delete;
  PipeEnd& operator=(const PipeEnd&) = delete;

  int Get() const { return fd_; }
  void Set(int fd) { fd_ = fd; }
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

  // In a program that was started with a standard stream closed, the pipe can get its number. The
  // child would then overwrite or close its own output, and 0 counts as no pipe at all.
  bool MoveAboveStandardStreams() {
    if (fd_ > STDERR_FILENO) {
      return true;
    }
    const int fd = fcntl(fd_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    Close();
    fd_ = fd;
    return fd_ >= 0;
  }

 private:
  void Close() {
    if (fd_ >= 0) {
      const int error = errno;
      close(fd_);
      errno = error;
    }
    fd_ = -1;
  }

  int fd_ = -1;
};

bool CreatePipe(PipeEnd& read_end, PipeEnd& write_end) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    SetLastError("create pipe: %s", strerror(errno));
    return false;
  }
  read_end.Set(ends[0]);
  write_end.Set(ends[1]);
  if (!read_end.MoveAboveStandardStreams() || !write_end.MoveAboveStandardStreams()) {
    SetLastError("create pipe: %s", strerror(errno));
    return false;
  }
  // A mere wish: with room for several reads, the child and its reader need not take turns, which
  // almost halves the time that a lot of output takes.
  fcntl(write_end.Get(), F_SETPIPE_SZ, kPipeSize);
  if (read_end.Get() >= FD_SETSIZE) {
    SetLastError("create pipe: descriptor %d is beyond the %d that select can watch",
                 read_end.Get(), FD_SETSIZE);
    return false;
  }
  return true;
}

// The words of a command line as `execvp` wants them. Made ahead of `fork`: the child must not
// allocate, let alone carry on with the parent's work when that throws.
class Arguments {
 public:
  explicit Arguments(const std::string& cmd_with_args) {
    SplitString(cmd_with_args, " ", words_);
    if (words_.empty()) {
      words_.emplace_back();  // no program has an empty name, so this ends as any unknown one
    }
    pointers_.reserve(words_.size() + 1);
    for (std::string& word : words_) {
      pointers_.push_back(word.data());
    }
    pointers_.push_back(nullptr);
  }

  char* const* Get() const { return pointers_.data(); }

 private:
  std::vector<std::string> words_;
  std::vector<char*> pointers_;
};

// The child's side of `fork`: becomes the command, or says on the pipe why it can't. It leaves with
// `_exit`, as what the parent has registered or buffered is not the child's to run or to print.
[[noreturn]] void RunCommand(char* const* args, int write_end) {
  // The copies stay open in the command, unlike the pipe itself.
  if (dup2(write_end, STDOUT_FILENO) < 0 || dup2(write_end, STDERR_FILENO) < 0) {
    _exit(errno);
  }
  execvp(args[0], args);
  const int error = errno;
  dprintf(STDOUT_FILENO, "error: %s: %s\n", args[0], strerror(error));
  _exit(error);
}

// Appends what was read, as text: in each chunk, a zero byte drops what is behind it. Several
// chunks are read at once where they are there, as if the reader had been a little late.
void AppendChunks(const char* bytes, size_t size, std::string& output) {
  if (output.capacity() - output.size() < size) {
    // As `reserve` would, but with huge pages under the copy already.
    std::string grown;
    // A chunk more than double: else a size that is a power of two just misses, and is copied
    // again.
    grown.reserve(2 * output.capacity() + size + kChunkSize);
    PreferHugePages(grown.data(), grown.capacity());
    grown += output;
    output.swap(grown);
  }
  for (size_t begin = 0; begin < size; begin += kChunkSize) {
    const char* chunk = bytes + begin;
    output.append(chunk, strnlen(chunk, std::min(kChunkSize, size - begin)));
  }
}

// Waits until the pipe is readable. A negative result is that of `select`, 0 means silence.
int WaitReadable(int pipe_id, uint64_t timeout) {
  fd_set read_set;
  FD_ZERO(&read_set);
  FD_SET(pipe_id, &read_set);
  struct timeval limit;
  limit.tv_sec = static_cast<time_t>(timeout / kMillisecondsPerSecond);
  limit.tv_usec =
      static_cast<suseconds_t>(timeout % kMillisecondsPerSecond * kMicrosecondsPerMillisecond);
  return select(pipe_id + 1, &read_set, nullptr, nullptr, timeout == 0 ? nullptr : &limit);
}

// Collects output until the child closes it (`PROCESS_SUCCESS`) or has to be stopped.
ProcessStatus Drain(int pipe_id, uint64_t timeout, std::string& output) {
  char bytes[kReadSize];
  while (true) {
    const int ready = WaitReadable(pipe_id, timeout);
    if (ready < 0) {
      SetLastError("select: %s", strerror(errno));
      return PROCESS_ERROR;
    }
    if (ready == 0) {
      return PROCESS_TIMEOUT;
    }
    const ssize_t count = read(pipe_id, bytes, sizeof(bytes));
    if (count == 0) {
      return PROCESS_SUCCESS;
    }
    if (count > 0) {
      AppendChunks(bytes, static_cast<size_t>(count), output);
    } else if (errno != EINTR) {
      SetLastError("read: %s", strerror(errno));
      return PROCESS_ERROR;
    }
  }
}

}  // namespace

Process::Process() : pid_(-1), pipe_id_(-1) {}

Process::~Process() { ClosePipe(); }

ProcessStatus Process::Create(const std::string& cmd_with_args) {
  if (cmd_with_args.empty()) {
    SetLastError("command is empty");
    return PROCESS_ERROR;
  }
  if (IsRunning()) {
    return PROCESS_RUNNING;
  }
  output_string_.clear();
  ClosePipe();  // of a child that ended without a `Wait`
  const Arguments args(cmd_with_args);
  PipeEnd read_end;
  PipeEnd write_end;
  if (!CreatePipe(read_end, write_end)) {
    return PROCESS_ERROR;
  }
  pid_ = fork();
  if (pid_ < 0) {
    SetLastError("fork: %s", strerror(errno));
    return PROCESS_ERROR;
  }
  if (pid_ == 0) {
    RunCommand(args.Get(), write_end.Get());
  }
  pipe_id_ = read_end.Release();
  return PROCESS_SUCCESS;
}

ProcessStatus Process::Wait(uint64_t timeout) {
  if (pid_ < 1 || pipe_id_ < 1) {
    SetLastError("invalid pid or pipe id");
    return PROCESS_ERROR;
  }
  ProcessStatus status = Drain(pipe_id_, timeout, output_string_);
  ClosePipe();
  if (status != PROCESS_SUCCESS && kill(pid_, SIGKILL) != 0) {
    SetLastError("kill: %s", strerror(errno));
    status = PROCESS_ERROR;
  }
  int child_status = 0;
  if (waitpid(pid_, &child_status, 0) == -1) {
    SetLastError("waitpid: %s", strerror(errno));
    status = PROCESS_ERROR;
  } else if (child_status != 0 && child_status != kKilledBySignal9) {
    SetLastError("The child process exits unexpectedly");
    status = PROCESS_ERROR;
  }
  pid_ = -1;
  return status;
}

ProcessStatus Process::Execute(const std::string& cmd_with_args, uint64_t timeout) {
  const ProcessStatus status = Create(cmd_with_args);
  return status == PROCESS_SUCCESS ? Wait(timeout) : status;
}

bool Process::Kill() {
  // Without a child of its own, the object may still see one of the program's other children run.
  // Signal 9 to "process -1" would then go to every process there is.
  if (!IsRunning() || pid_ < 1) {
    return true;
  }
  if (kill(pid_, SIGKILL) != 0) {
    SetLastError("kill: %s", strerror(errno));
    return false;
  }
  return true;
}

bool Process::IsRunning() { return waitpid(pid_, nullptr, WNOHANG) == 0; }

std::string& Process::GetOutputString() { return output_string_; }

void Process::ClosePipe() {
  if (pipe_id_ > 0) {
    close(pipe_id_);
  }
  pipe_id_ = -1;
}

}  // namespace util
