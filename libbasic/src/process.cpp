#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "internal.h"
#include "misc.h"

namespace util {
namespace {

constexpr size_t kChunkSize = 4096;
constexpr int kPipeSize = 64 * kChunkSize;
constexpr long kSmallProgramSize = 2 * 1024 * 1024;
// Milliseconds. Each round finds the children of those that the round before has killed.
constexpr uint64_t kStopInterval = 1;

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

  // Leaves `errno` as it is.
  void Close() {
    if (fd_ >= 0) {
      const int error = errno;
      close(fd_);
      errno = error;
    }
    fd_ = -1;
  }

 private:
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
  // Best effort: a larger pipe lets child and reader overlap, which almost halves the time that a
  // lot of output takes.
  fcntl(write_end.Get(), F_SETPIPE_SZ, kPipeSize);
  return true;
}

// The words of a command line as `execvp` wants them. Made before the child exists, which must not
// allocate.
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {
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

// The child may run in the parent's memory until it is another program. So from here to
// `RunCommand`, it only makes system calls: no allocation, no lock, no buffered output.

// Handlers of the parent must not run in the child, where they could change the parent's memory. A
// child in this memory must not be stopped from the terminal either: the parent is suspended until
// the child is another program, which starts with the default action again.
void ResetSignalHandlers(bool is_in_parents_memory) {
  for (int signal_number = 1; signal_number < NSIG; ++signal_number) {
    struct sigaction action;
    if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) {
      continue;
    }
    const bool is_stop =
        signal_number == SIGTSTP || signal_number == SIGTTIN || signal_number == SIGTTOU;
    if (is_stop && is_in_parents_memory) {
      action.sa_handler = [](int) {};
    } else if (action.sa_handler != SIG_DFL) {
      action.sa_handler = SIG_DFL;
    } else {
      continue;
    }
    sigaction(signal_number, &action, nullptr);
  }
}

// What `strerror` says where no locale translates it; `strerror` itself may take a lock.
const char* GetErrorText(int error) {
#ifdef __GLIBC__
  const char* text = strerrordesc_np(error);
  return text == nullptr ? "Unknown error" : text;
#else
  return strerror(error);
#endif
}

void WriteToOutput(const char* text) {
  for (size_t size = strlen(text); size > 0;) {
    const ssize_t count = write(STDOUT_FILENO, text, size);
    if (count <= 0) {
      return;
    }
    text += count;
    size -= static_cast<size_t>(count);
  }
}

// Becomes the command, with the signal mask `mask`, or writes to the pipe why it can't.
[[noreturn]] void RunCommand(char* const* args, int write_end, const sigset_t& mask,
                             bool is_in_parents_memory) {
  // The copies stay open in the command, unlike the pipe itself.
  if (dup2(write_end, STDOUT_FILENO) < 0 || dup2(write_end, STDERR_FILENO) < 0) {
    _exit(errno);
  }
  ResetSignalHandlers(is_in_parents_memory);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  execvp(args[0], args);
  const int error = errno;
  for (const char* text :
       {"error: ", static_cast<const char*>(args[0]), ": ", GetErrorText(error), "\n"}) {
    WriteToOutput(text);
  }
  _exit(error);
}

// Blocks all signals, and cancellation of the thread, until it goes out of scope.
class SignalBlock {
 public:
  SignalBlock() {
    sigset_t all;
    sigfillset(&all);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_cancel_state_);
    pthread_sigmask(SIG_SETMASK, &all, &former_mask_);
  }
  ~SignalBlock() {
    pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
    pthread_setcancelstate(former_cancel_state_, nullptr);
  }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

  const sigset_t& GetFormerMask() const { return former_mask_; }

 private:
  sigset_t former_mask_;
  int former_cancel_state_ = PTHREAD_CANCEL_ENABLE;
};

// Whether this program has so much memory of its own that copying its page tables would take longer
// than all the rest: with 1 GiB, 20 times as long.
bool IsLargeProgram() {
  char text[128] = {};
  const int fd = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  const bool is_read = read(fd, text, sizeof(text) - 1) > 0;
  close(fd);
  long resident = 0;
  long shared = 0;
  return is_read && sscanf(text, "%*d %ld %ld", &resident, &shared) == 2 &&
         resident - shared > kSmallProgramSize / sysconf(_SC_PAGESIZE);
}

bool HandlesSignals() {
  struct sigaction action;
  for (int signal_number = 1; signal_number < NSIG; ++signal_number) {
    if (sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
        action.sa_handler != SIG_IGN) {
      return true;
    }
  }
  return false;
}

// Starts the child and returns its id, negative on failure. `vfork` suspends this thread until the
// child is another program or has ended; `is_suspended` is whether that may be.
pid_t StartChild(char* const* args, int write_end, const sigset_t& mask, bool is_suspended) {
  if (is_suspended) {
    const pid_t pid = vfork();
    if (pid == 0) {
      RunCommand(args, write_end, mask, /*is_in_parents_memory=*/true);
    }
    return pid;
  }
  const pid_t pid = _Fork();
  if (pid == 0) {
    RunCommand(args, write_end, mask, /*is_in_parents_memory=*/false);
  }
  return pid;
}

// Appends what was read. Several chunks are read at once if they are there, as if the reader had
// been a little late.
void AppendOutput(const char* bytes, size_t size, std::string& output) {
  if (output.capacity() - output.size() < size) {
    // As `reserve` does, but with huge pages under the copy. A chunk more than double, so that
    // output whose size is a power of two is not copied once more.
    std::string grown;
    grown.reserve(2 * output.capacity() + size + kChunkSize);
    PreferHugePages(grown.data(), grown.capacity());
    grown += output;
    output.swap(grown);
  }
  AppendChunks(bytes, size, kChunkSize, output);
}

// Waits until the pipe is readable; a timeout of 0 means no limit. Returns 0 after the timeout, and
// a negative number on failure.
int WaitReadable(int pipe_id, uint64_t timeout) {
  struct pollfd pipe = {pipe_id, POLLIN, 0};
  struct timespec limit;
  limit.tv_sec = static_cast<time_t>(timeout / kMillisecondsPerSecond);
  limit.tv_nsec = static_cast<long>(timeout % kMillisecondsPerSecond * kNanosecondsPerMillisecond);
  return ppoll(&pipe, 1, timeout == 0 ? nullptr : &limit, nullptr);
}

// Collects output until the child closes it (`PROCESS_SUCCESS`) or has to be stopped.
ProcessStatus Drain(int pipe_id, uint64_t timeout, std::string& output) {
  ReadBuffer buffer;
  while (true) {
    const int ready = WaitReadable(pipe_id, timeout);
    if (ready < 0) {
      SetLastError("select: %s", strerror(errno));
      return PROCESS_ERROR;
    }
    if (ready == 0) {
      return PROCESS_TIMEOUT;
    }
    const ssize_t count = read(pipe_id, buffer.Get(), buffer.GetSize());
    if (count == 0) {
      return PROCESS_SUCCESS;
    }
    if (count > 0) {
      AppendOutput(buffer.Get(), static_cast<size_t>(count), output);
    } else if (errno != EINTR) {
      SetLastError("read: %s", strerror(errno));
      return PROCESS_ERROR;
    }
  }
}

// Whether nobody has reaped this child.
bool IsChild(int pid) {
  siginfo_t child;
  return waitid(P_PID, static_cast<id_t>(pid), &child, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// Milliseconds of a clock that nobody sets.
uint64_t GetUptime() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * kMillisecondsPerSecond +
         static_cast<uint64_t>(now.tv_nsec) / kNanosecondsPerMillisecond;
}

std::atomic<bool> s_adopts_orphans = false;

// Reaps what children have left to this process, and returns whether anything of it still runs in
// this process group. Daemons have their own.
bool HasOrphans() {
  pid_t reaped = s_adopts_orphans ? 1 : -1;
  while (reaped > 0) {
    reaped = waitpid(0, nullptr, WNOHANG);
  }
  return reaped == 0;
}

// Kills what children have left running in this process group.
void KillOrphans() {
  char list[2048];  // what does not fit comes next time
  const int fd = s_adopts_orphans ? open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC) : -1;
  const ssize_t size = read(fd, list, sizeof(list));
  close(fd);
  pid_t pid = 0;
  for (ssize_t i = 0; i < size; ++i) {
    if (list[i] != ' ') {
      pid = pid * 10 + (list[i] - '0');
      continue;
    }
    // The list may have the numbers of another namespace, so ask whether this is a child.
    if (waitpid(pid, nullptr, WNOHANG) == 0 && getpgid(pid) == getpgrp()) {
      kill(pid, SIGKILL);
    }
    pid = 0;
  }
}

}  // namespace

Process::Process() : pid_(-1), pipe_id_(-1), is_reaped_(false), exit_code_(-1), end_signal_(0) {}

Process::~Process() { ClosePipe(); }

ProcessStatus Process::Create(const std::string& cmd_with_args) {
  // Without a child of its own, this asks for any child of the program.
  return !cmd_with_args.empty() && IsRunning() ? PROCESS_RUNNING : Start(cmd_with_args);
}

ProcessStatus Process::Start(const std::string& cmd_with_args) {
  std::vector<std::string> words;
  SplitString(cmd_with_args, " ", words);
  if (words.empty() && !cmd_with_args.empty()) {
    words.emplace_back();  // no program has an empty name, so this ends as any unknown one
  }
  return Start(words);
}

ProcessStatus Process::Start(std::initializer_list<std::string> words) {
  return Start(std::vector<std::string>(words));
}

ProcessStatus Process::Wait(uint64_t timeout) {
  if (pid_ < 1 || pipe_id_ < 1) {
    SetLastError("invalid pid or pipe id");
    return PROCESS_ERROR;
  }
  ProcessStatus status = Drain(pipe_id_, timeout, output_string_);
  ClosePipe();
  if (status != PROCESS_SUCCESS && !is_reaped_ && IsChild(pid_) && kill(pid_, SIGKILL) != 0) {
    SetLastError("kill: %s", strerror(errno));
    status = PROCESS_ERROR;
  }
  const int error = CollectChild();
  if (error != 0) {
    SetLastError("waitpid: %s", strerror(error));
    status = PROCESS_ERROR;
  } else if (exit_code_ != 0 && end_signal_ != SIGKILL) {
    SetLastError("The child process exits unexpectedly");
    status = PROCESS_ERROR;
  }
  pid_ = -1;
  is_reaped_ = false;
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

bool Process::IsRunning() {
  if (is_reaped_) {
    return false;
  }
  int status = 0;
  const pid_t answer = waitpid(pid_, &status, WNOHANG);
  if (pid_ > 0 && answer != 0) {
    is_reaped_ = true;
    KeepStatus(answer, status);
  }
  return answer == 0;
}

std::string& Process::GetOutputString() { return output_string_; }

int Process::GetExitCode() const { return exit_code_; }

int Process::GetEndSignal() const { return end_signal_; }

void Process::AdoptOrphans() {
  siginfo_t child;
  const bool has_children = waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0;
  s_adopts_orphans = !has_children && prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}

void Process::Stop(uint64_t patience) {
  if (pid_ < 1) {
    return;
  }
  bool is_running = IsRunning();
  if (is_running) {
    kill(pid_, SIGTERM);
  }
  // What the child has started may still be writing files while the pipe is open.
  bool is_open = pipe_id_ > 0;
  const uint64_t begin = GetUptime();
  for (uint64_t passed = 0; (is_running || is_open || HasOrphans()) && passed <= patience;
       passed = GetUptime() - begin) {
    if (passed >= patience / 2) {
      if (is_running) {
        kill(pid_, SIGKILL);
      }
      KillOrphans();
    }
    struct pollfd pipe = {is_open ? pipe_id_ : -1, POLLIN, 0};
    if (poll(&pipe, 1, static_cast<int>(std::min(kStopInterval, patience - passed))) > 0) {
      char discarded[kChunkSize];
      is_open = read(pipe_id_, discarded, sizeof(discarded)) > 0;
    }
    is_running = is_running && IsRunning();
  }
}

ProcessStatus Process::Start(const std::vector<std::string>& words) {
  if (words.empty()) {
    SetLastError("command is empty");
    return PROCESS_ERROR;
  }
  if (pid_ > 0 && IsRunning()) {
    return PROCESS_RUNNING;
  }
  output_string_.clear();
  ClosePipe();  // of a child that ended without a `Wait`
  const Arguments args(words);
  PipeEnd read_end;
  PipeEnd write_end;
  if (!CreatePipe(read_end, write_end)) {
    return PROCESS_ERROR;
  }
  // A copy costs time, but signal handlers then need not wait until the system has loaded the
  // command. The line that tells why it can't be started may not fit into the pipe if its name is
  // very long, so the reader has to run.
  const bool is_copy =
      (HandlesSignals() && !IsLargeProgram()) || strlen(args.Get()[0]) >= PATH_MAX / 2;
  // A signal handler finds no child, or its id and its pipe.
  const SignalBlock block;
  is_reaped_ = false;
  pid_ = StartChild(args.Get(), write_end.Get(), block.GetFormerMask(), !is_copy);
  if (pid_ < 0) {
    SetLastError("fork: %s", strerror(errno));
    return PROCESS_ERROR;
  }
  write_end.Close();
  pipe_id_ = read_end.Release();
  return PROCESS_SUCCESS;
}

int Process::CollectChild() {
  if (is_reaped_) {
    return ECHILD;
  }
  int status = 0;
  pid_t collected = waitpid(pid_, &status, 0);
  const int error = collected == -1 ? errno : 0;
  if (error == EINTR) {  // a failure like any other, but the child must not go on unattended
    kill(pid_, SIGKILL);
    do {
      collected = waitpid(pid_, &status, 0);
    } while (collected == -1 && errno == EINTR);
  }
  KeepStatus(collected, status);
  return error;
}

void Process::KeepStatus(int collected, int status) {
  if (collected > 0) {
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    end_signal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }
}

void Process::ClosePipe() {
  if (pipe_id_ > 0) {
    close(pipe_id_);
  }
  pipe_id_ = -1;
}

}  // namespace util
