#ifndef LIBBASIC_PROCESS_H_
#define LIBBASIC_PROCESS_H_

#if __cplusplus < 201703L
#include "libbasic needs C++17 or later"  // Unlike #error, it ends the compilation at once.
#endif

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

/// \file
/// Child processes.

namespace util {

/// How starting a child, or waiting for it, ended.
enum ProcessStatus {
  /// The operation failed or the child ended abnormally; the last-error text has the reason.
  PROCESS_ERROR = -1,
  /// `Create`, `Start`: the child was started. `Wait`: it closed its output and ended normally.
  PROCESS_SUCCESS = 0,
  /// The child was silent for the whole timeout and has been killed.
  PROCESS_TIMEOUT = 1,
  /// `Create`, `Start`: a child is still running, so nothing was started.
  PROCESS_RUNNING = 2,
};

/// Runs one command at a time as a child process, without a shell, and collects what it writes to
/// its standard output and standard error, in the order in which it was written.
///
/// Call `Create` and then `Wait`, or `Execute` in their place; then `GetOutputString`. The object
/// can run a further command after that. Nothing is retried, logged or thrown.
///
/// Threads: an object is used by one thread at a time. Any number of threads may run commands, each
/// with an object of its own, while others log, allocate or start children too: the child takes no
/// lock of the parent's before it is another program, and the pipe of one command does not leak
/// into another. Descriptors that the program itself opens without `O_CLOEXEC` do. In a program
/// with other children, use `Start`: `Create` of an object without a child asks for any child of
/// the program, starts nothing while one runs, and may collect one that has ended, whose own `Wait`
/// then fails.
///
/// Signals: the command starts with the signal mask of the calling thread. Signals that the program
/// ignores stay ignored, and those that it handles have their default action. The thread is
/// suspended, with all signals blocked, until the system has loaded the command; until then, a stop
/// from the terminal does not stop the command. A program that handles signals is not suspended if
/// it has at most 2 MiB of memory of its own. A signal handler that runs during `Wait` interrupts
/// it, which stops the child. The program must not ignore SIGCHLD, and must not reap the child by
/// other means: `Wait` could then not tell how it ended, and the id of a child that is gone may
/// become that of another process.
class Process {
 public:
  /// Holds no child.
  Process();

  /// Closes the pipe from the child. A child that still runs is neither killed nor waited for;
  /// its next output ends it, as a rule.
  ~Process();

  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// Starts a command. Its words are the pieces between blanks, with no quoting of any kind; the
  /// first is the program, looked up in `PATH` when it has no slash. Standard input, environment,
  /// working directory and open descriptors without `O_CLOEXEC` are the caller's. Clears the output
  /// of an earlier command.
  /// \return `PROCESS_SUCCESS`, and the child is held until `Wait`. A program that can't be started
  ///         shows only there: the child then prints "error: %s: %s\n" with the program and the
  ///         system's words in English, and exits with the value of `errno`. Blanks alone are such
  ///         a program. `PROCESS_RUNNING` when `IsRunning` returns true, without a text; nothing
  ///         changes. `PROCESS_ERROR` with "command is empty", "create pipe: %s" or
  ///         "fork: %s"; nothing stays open.
  ProcessStatus Create(const std::string& cmd_with_args);

  /// Starts a command like `Create`, but only a child that this object holds counts as running. The
  /// program's other children don't: those of other objects, or those that a shell left to it with
  /// `exec`.
  ProcessStatus Start(const std::string& cmd_with_args);

  /// As above, with the words of the command, which are passed as they are, blanks included, up to
  /// a zero byte. Without words, the last error is "command is empty".
  ProcessStatus Start(const std::vector<std::string>& words);

  /// As above, for words in braces: `Start({"cp", "a b", "c"})`.
  ProcessStatus Start(std::initializer_list<std::string> words);

  /// Collects output until the child and all that have inherited its output have closed it, then
  /// waits for the child's end, without a limit of time. A zero byte in the output drops the rest
  /// of its chunk of at most 4096 bytes.
  /// \param timeout  How long the child may be silent, in milliseconds; 0 means no limit. It
  ///                 restarts with each output and ends once the child has closed its output. So it
  ///                 limits neither how long a child runs that writes now and then, nor how long
  ///                 one runs on after it has closed its output.
  /// \return `PROCESS_SUCCESS` for an exit with code 0, and for an end by signal 9.
  ///         `PROCESS_TIMEOUT` after the timeout, without a text; the child has been killed if it
  ///         still ran, but not what it has started.
  ///         `PROCESS_ERROR` for any other end ("The child process exits unexpectedly"), without a
  ///         child ("invalid pid or pipe id"), and when a system call fails: "select: %s",
  ///         "read: %s" (in both cases the child has been killed), "kill: %s", "waitpid: %s" (if a
  ///         signal handler interrupted it, the child has been killed and reaped). If several steps
  ///         fail, the last error wins.
  ///         Whatever it returns, no child and no pipe is held afterwards.
  ProcessStatus Wait(uint64_t timeout);

  /// Calls `Create` and, if that succeeds, `Wait`.
  /// \param timeout  In milliseconds, as for `Wait`.
  /// \return What the last of the two answered.
  ProcessStatus Execute(const std::string& cmd_with_args, uint64_t timeout);

  /// Sends signal 9 to the child if it still runs; `Wait` is still needed to collect it, and
  /// then succeeds. Asks `IsRunning` first, with what that does to a child that has ended.
  /// \return False with "kill: %s" when that failed, otherwise true.
  bool Kill();

  /// Returns whether the child still runs. Reaps a child that has ended; a later `Wait` then fails
  /// with "waitpid: %s". Without a child, this is about all children of the program: it is true as
  /// long as all that are left run, and may reap one that has ended.
  bool IsRunning();

  /// Returns the output collected so far. The next command clears it. A caller that is done with
  /// the object may move the text out of it.
  std::string& GetOutputString();

  /// Returns the exit code of the last child that has been reaped; -1 if a signal ended it, and
  /// before the first.
  int GetExitCode() const;

  /// Returns the number of the signal that ended the last child that has been reaped; 0 if it
  /// exited, and before the first.
  int GetEndSignal() const;

  /// For programs of one thread that run one command at a time. From now on, descendants of this
  /// process whose parent ends become its children: the commands of a shell script, for example.
  /// `Stop` can then end them too, and reaps those that have ended. While one runs, `Create` may
  /// return `PROCESS_RUNNING`; use `Start`. Has no effect in a process that has children already,
  /// as what those leave running could not be told from the rest.
  static void AdoptOrphans();

  /// Ends the child for a program that is about to end itself. Async-signal-safe: a signal handler
  /// may call it at any time in the thread that uses this object, and must then end the program.
  ///
  /// Sends SIGTERM, and signal 9 to a child that still runs after half of the patience; reaps the
  /// child. Discards output until the child and all that it has started have closed it, so that
  /// none of them is writing files any more. After `AdoptOrphans`, all children of this process in
  /// the same process group get signal 9 after half of the patience, and are reaped. Does nothing
  /// without a child.
  /// \param patience  How long to wait for all that, in milliseconds. What can't be killed by then,
  ///                  or not be reaped because it is traced, is left to itself.
  void Stop(uint64_t patience);

 private:
  int CollectChild();
  void KeepStatus(int collected, int status);
  void ClosePipe();

  int pid_;
  int pipe_id_;
  std::string output_string_;
  bool is_reaped_;  // by `IsRunning`; `pid_` may be another process's by now
  int exit_code_;
  int end_signal_;
};

}  // namespace util

#endif  // LIBBASIC_PROCESS_H_
