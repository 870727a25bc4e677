#include "process.h"

#include "faults.h"
#include "lwlogger.h"
#include "test_support.h"

namespace {

using namespace util;

const std::string kUnexpected = "The child process exits unexpectedly";

class ProcessTest : public FolderTest {
 protected:
  ProcessTest() { SetLastError("none"); }

  // The command that runs `text` as a shell script. Commands know no quoting, so it is in a file.
  std::string Script(const std::string& text) const { return "sh " + Make("script", text); }

  // Awaits the end of the child, which stays to be collected, and returns its exit code.
  static int AwaitEnd() {
    siginfo_t info = {};
    return waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) == 0 ? info.si_status : -1;
  }

  // Expects what a command came to, and that no child is left.
  void Expect(ProcessStatus actual, ProcessStatus status, const std::string& output,
              const std::string& last_error = "none") {
    EXPECT_EQ(actual, status);
    EXPECT_EQ(FirstDifference(process_.GetOutputString(), output), kNone);
    EXPECT_EQ(GetLastError(), last_error);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    SetLastError("none");
  }

  Process process_;
};

TEST_F(ProcessTest, WaitTellsHowTheChildEnded) {
  struct Row {
    std::string name;
    std::string script;
    uint64_t timeout;
    ProcessStatus status;
    std::string output;
    std::string last_error;
    int exit_code;
    int end_signal;
  };
  const Row rows[] = {
      {"one byte", "printf x", 0, PROCESS_SUCCESS, "x", "none", 0, 0},
      {"exit code", "echo 1; exit 3", 0, PROCESS_ERROR, "1\n", kUnexpected, 3, 0},
      {"SIGTERM", "kill -TERM $$", 0, PROCESS_ERROR, "", kUnexpected, -1, SIGTERM},
      {"signal 9 from outside", "kill -KILL $$", 0, PROCESS_SUCCESS, "", "none", -1, SIGKILL},
      {"silent", "echo 1; exec sleep 100", 200, PROCESS_TIMEOUT, "1\n", "none", -1, SIGKILL},
      {"slow, but not silent", "for i in 1 2 3; do sleep 0.4; echo $i; done", 1001, PROCESS_SUCCESS,
       "1\n2\n3\n", "none", 0, 0},
      {"goes on with its output closed", "exec >&- 2>&-; sleep 0.2; exit 4", 100, PROCESS_ERROR, "",
       kUnexpected, 4, 0},
      {"leaves a child that writes", "(sleep 0.2; echo 2) & echo 1", 0, PROCESS_SUCCESS, "1\n2\n",
       "none", 0, 0},
      {"leaves a child that is silent", "sleep 1 & echo 1", 100, PROCESS_TIMEOUT, "1\n", "none", 0,
       0},
  };
  const auto open_files = CountOpenFiles();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Expect(process_.Execute(Script(row.script), row.timeout), row.status, row.output,
           row.last_error);
    EXPECT_EQ(process_.GetExitCode(), row.exit_code);
    EXPECT_EQ(process_.GetEndSignal(), row.end_signal);
  }
  EXPECT_EQ(CountOpenFiles(), open_files);
}

TEST_F(ProcessTest, LargeOutputOfBothStreamsArrivesInOrderAlsoWhereMemoryIsShort) {
  const std::string pad(50, 'x');
  std::string output;
  for (int i = 1; i <= 6000; ++i) output += std::to_string(i) + pad + "\n";
  const std::string script =
      "x=" + pad + "; while [ $((i+=2)) -le 6000 ]; do echo $((i-1))$x; echo $i$x >&2; done";
  const std::string command = Script(script);
  for (const char* failing : {"nothing", "new"}) {
    SCOPED_TRACE(failing);
    const Fault fault(failing, ENOMEM);
    Expect(process_.Execute(command, 0), PROCESS_SUCCESS, output);
  }
}

TEST_F(ProcessTest, ZeroByteDropsTheRestOfItsChunk) {
  const std::string chunk = "head" + std::string(4092, '\0') + "tail";
  Expect(process_.Execute("cat " + Make("data", chunk), 0), PROCESS_SUCCESS, "headtail");
}

TEST_F(ProcessTest, CommandsAreWordsBetweenBlanks) {
  const std::string command = "  " + Script("printf '<%s>' \"$@\"") + "  a  'b c' $x\t* ";
  Expect(process_.Execute(command, 0), PROCESS_SUCCESS, "<a><'b><c'><$x\t*>");
}

TEST_F(ProcessTest, ProgramThatCannotBeStartedSaysWhyAndExitsWithErrno) {
  SetEnvVar("PATH", "/usr/bin:/bin");  // a folder that this user can't search changes the reason
  const std::string long_name(300000, 'x');
  struct Row {
    std::string command;
    std::string output;
    int exit_code;
  };
  const Row rows[] = {
      {"/none/a b", "error: /none/a: No such file or directory\n", ENOENT},
      {"unknown-program", "error: unknown-program: No such file or directory\n", ENOENT},
      {"   ", "error: : No such file or directory\n", ENOENT},
      {"/", "error: /: Permission denied\n", EACCES},
      {long_name, "error: " + long_name + ": File name too long\n", ENAMETOOLONG},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.command.substr(0, 20));
    EXPECT_EQ(process_.Create(row.command), PROCESS_SUCCESS);
    if (row.command.size() < 1000) {
      EXPECT_EQ(AwaitEnd(), row.exit_code);
    }
    Expect(process_.Wait(0), PROCESS_ERROR, row.output, kUnexpected);
  }
}

TEST_F(ProcessTest, OneChildIsHeldAtATime) {
  Expect(process_.Execute("", 0), PROCESS_ERROR, "", "command is empty");
  Expect(process_.Start(""), PROCESS_ERROR, "", "command is empty");
  Expect(process_.Wait(0), PROCESS_ERROR, "", "invalid pid or pipe id");
  EXPECT_EQ(process_.Create("sleep 100"), PROCESS_SUCCESS);
  process_.GetOutputString() = "kept";
  EXPECT_EQ(process_.Execute("echo other", 0), PROCESS_RUNNING);
  EXPECT_EQ(process_.Start("echo other"), PROCESS_RUNNING);
  EXPECT_TRUE(process_.IsRunning());
  EXPECT_TRUE(process_.Kill());
  Expect(process_.Wait(0), PROCESS_SUCCESS, "kept");
  Expect(process_.Wait(0), PROCESS_ERROR, "kept", "invalid pid or pipe id");
}

TEST_F(ProcessTest, AskingCollectsAChildThatHasEnded) {
  EXPECT_EQ(process_.Create("true"), PROCESS_SUCCESS);
  EXPECT_EQ(AwaitEnd(), 0);
  EXPECT_FALSE(process_.IsRunning());
  Expect(process_.Wait(0), PROCESS_ERROR, "", "waitpid: No child processes");
}

TEST_F(ProcessTest, IdOfACollectedChildIsNotKilled) {
  // What the child leaves keeps the pipe open, so that the wait ends with the timeout.
  EXPECT_EQ(process_.Create(Script("sleep 1 & exit 3")), PROCESS_SUCCESS);
  EXPECT_EQ(AwaitEnd(), 3);
  EXPECT_FALSE(process_.IsRunning());
  const Fault fault("kill", EPERM);
  Expect(process_.Wait(50), PROCESS_ERROR, "", "waitpid: No child processes");
  EXPECT_FALSE(fault.HasHappened()) << "it may be another process by now";
  EXPECT_EQ(process_.GetExitCode(), 3);
}

TEST_F(ProcessTest, WordsArePassedAsTheyAre) {
  const std::string script = Make("script", "printf '<%s>' \"$@\"");
  EXPECT_EQ(process_.Start({"sh", script, "a b", "", " "}), PROCESS_SUCCESS);
  Expect(process_.Wait(0), PROCESS_SUCCESS, "<a b><>< >");
  EXPECT_EQ(process_.Start(Strings{"sh"}), PROCESS_SUCCESS);
  Expect(process_.Wait(0), PROCESS_SUCCESS, "");
  Expect(process_.Start({}), PROCESS_ERROR, "", "command is empty");
}

TEST_F(ProcessTest, StartIgnoresTheProgramsOtherChildren) {
  Process other;
  EXPECT_EQ(other.Create("sleep 100"), PROCESS_SUCCESS);
  EXPECT_EQ(process_.Create("echo x"), PROCESS_RUNNING);
  EXPECT_TRUE(process_.Kill()) << "kills nobody, as there is no child of its own";
  EXPECT_TRUE(other.IsRunning());
  EXPECT_EQ(process_.Start("echo x"), PROCESS_SUCCESS);
  EXPECT_EQ(process_.Wait(0), PROCESS_SUCCESS);
  other.Stop(600000);
  Expect(PROCESS_SUCCESS, PROCESS_SUCCESS, "x\n");
}

TEST_F(ProcessTest, StopLetsAChildCleanUpAndKillsOneThatIgnoresIt) {
  const std::string wait = "echo > " + At("ready") + "; while :; do sleep 0.01; done";
  const std::string clean_up = "trap 'echo > " + At("clean") + "; exit' TERM; exec >&- 2>&-; ";
  for (const std::string& script : {clean_up + wait, "trap '' TERM; " + wait}) {
    SCOPED_TRACE(script);
    EXPECT_EQ(process_.Create(Script(script)), PROCESS_SUCCESS);
    while (!fs::remove(At("ready"))) std::this_thread::yield();
    process_.Stop(1000);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  }
  EXPECT_TRUE(fs::exists(At("clean")));
}

TEST_F(ProcessTest, StopWaitsForWhatTheChildHasStarted) {
  const std::string late = "; sleep 0.2; echo > " + At("late") + ") & wait";
  EXPECT_EQ(process_.Create(Script("(echo > " + At("ready") + late)), PROCESS_SUCCESS);
  while (!fs::remove(At("ready"))) std::this_thread::yield();
  process_.Stop(5000);
  EXPECT_TRUE(fs::exists(At("late"))) << "what the child has started is still writing";
}

TEST_F(ProcessTest, StopGivesUpOnAChildThatItMayNotKill) {
  mkfifo(At("fifo").c_str(), 0600);
  std::fstream fifo(At("fifo"));
  EXPECT_EQ(process_.Create(Script("exec >&- 2>&-; read line < " + At("fifo"))), PROCESS_SUCCESS);
  {
    const Fault fault("kill", EPERM);
    process_.Stop(50);
  }
  EXPECT_TRUE(process_.IsRunning());
  fifo << std::endl;
  EXPECT_EQ(AwaitEnd(), 0);
  waitpid(-1, nullptr, 0);
}

TEST_F(ProcessTest, DestructionClosesThePipeAndLetsTheChildGoOn) {
  mkfifo(At("fifo").c_str(), 0600);
  std::fstream fifo(At("fifo"));
  const auto open_files = CountOpenFiles();
  Process().Create(Script("read line < " + At("fifo") + "; exit $line"));
  EXPECT_EQ(CountOpenFiles(), open_files);
  fifo << "7" << std::endl;
  EXPECT_EQ(AwaitEnd(), 7);
  waitpid(-1, nullptr, 0);
}

TEST_F(ProcessTest, FailingSystemCallsAreReportedAndLeaveNothing) {
  struct Row {
    const char* call;
    int error;
    std::string command;
    uint64_t timeout;
    std::string last_error;
  };
  const Row rows[] = {
      {"pipe2", ENFILE, "echo x", 0, "create pipe: Too many open files in system"},
      {"dup2", EBUSY, "echo x", 0, kUnexpected},
      {"read", EIO, "sleep 100 & echo x; wait", 0, "read: Input/output error"},
      {"kill", EPERM, "sleep 0.2", 50, "kill: Operation not permitted"},
  };
  const auto open_files = CountOpenFiles();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.call);
    const std::string command = Script(row.command);
    const Fault fault(row.call, row.error);
    Expect(process_.Execute(command, row.timeout), PROCESS_ERROR, "", row.last_error);
  }
  EXPECT_EQ(CountOpenFiles(), open_files);
}

TEST_F(ProcessTest, InterruptedSelectStopsTheChild) {
  InFork([this] {
    signal(SIGALRM, [](int) {});
    const struct itimerval often = {{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    Expect(process_.Execute("sleep 100", 0), PROCESS_ERROR, "", "select: Interrupted system call");
  });
}

TEST_F(ProcessTest, InterruptedWaitForTheEndKillsTheChild) {
  InFork([this] {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const std::string script = "exec >&- 2>&-; while kill -ALRM $PPID; do sleep 0.01; done";
    Expect(process_.Execute(Script(script), 0), PROCESS_ERROR, "",
           "waitpid: Interrupted system call");
    EXPECT_EQ(process_.GetEndSignal(), SIGKILL);
  });
}

TEST_F(ProcessTest, OutputArrivesWhenStandardStreamsAreClosed) {
  for (const std::vector<int>& closed : {std::vector<int>{0}, {1}, {2}, {0, 1}, {0, 1, 2}}) {
    SCOPED_TRACE(testing::PrintToString(closed));
    InFork([&] {
      for (const int fd : closed) close(fd);
      Expect(process_.Execute(Script("echo 1; echo 2 >&2"), 0), PROCESS_SUCCESS, "1\n2\n");
    });
  }
  InFork([this] {
    close(STDIN_FILENO);
    const std::string command = Script("echo x");
    const Fault fault("fcntl", EMFILE);
    Expect(process_.Execute(command, 0), PROCESS_ERROR, "", "create pipe: Too many open files");
  });
}

// A line of /proc/self/status, such as "SigBlk:\t0000000000000200".
std::string SignalSet(const std::string& name, int signal_number) {
  return name + StrFormat(":\t%016x\n", 1U << (signal_number - 1));
}

TEST_F(ProcessTest, CommandStartsWithTheCallersMaskAndIgnoredSignalsAndNoHandlers) {
  InFork([this] {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
    for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
    signal(SIGUSR2, SIG_IGN);
    signal(SIGALRM, [](int) {});
    EXPECT_EQ(process_.Execute("cat /proc/self/status", 0), PROCESS_SUCCESS);
    const std::string status = process_.GetOutputString();
    EXPECT_THAT(status, testing::HasSubstr(SignalSet("SigBlk", SIGUSR1)));
    EXPECT_THAT(status, testing::HasSubstr(SignalSet("SigIgn", SIGUSR2)));
    EXPECT_THAT(status, testing::HasSubstr("SigCgt:\t0000000000000000\n"));
    EXPECT_EQ(sigprocmask(SIG_SETMASK, nullptr, &blocked), 0);
    EXPECT_EQ(sigismember(&blocked, SIGALRM), 0) << "the caller's own mask is not restored";
  });
}

TEST_F(ProcessTest, StopFromTheTerminalDoesNotHangAStart) {
  std::string path;
  for (int i = 0; i < 5000; ++i) path += "/none:";  // the search takes some milliseconds
  for (const size_t held_memory : {0U, 64U << 20}) {
    SCOPED_TRACE(held_memory);
    InFork([&] {
      SetEnvVar("PATH", path + GetEnvVar("PATH"));
      const std::string held(held_memory, 'x');
      static pid_t parent = 0;
      static std::atomic<bool> is_elsewhere = false;
      parent = getpid();
      signal(SIGTSTP, [](int) { is_elsewhere = is_elsewhere || getpid() != parent; });
      setpgid(0, 0);
      alarm(20);
      std::atomic<bool> is_starting = true;
      std::thread terminal([&] {
        while (is_starting) kill(0, SIGTSTP);
      });
      EXPECT_EQ(process_.Create("true"), PROCESS_SUCCESS);
      is_starting = false;
      terminal.join();
      kill(0, SIGCONT);
      EXPECT_FALSE(is_elsewhere) << "a handler of the caller has run in the child";
      Expect(process_.Wait(0), PROCESS_SUCCESS, "");
    });
  }
}

TEST_F(ProcessTest, ThreadsStartChildrenWhileOthersLogAndAllocate) {
  InFork([this] {
    EXPECT_NE(freopen(At("log").c_str(), "w", stderr), nullptr);
    process_.Execute("ls /proc/self/fd", 0);
    const std::string descriptors = process_.GetOutputString();
    std::atomic<int> starting = 4;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
      threads.emplace_back([&] {
        while (starting > 0) LOG_ERROR("%s\n", StrFormat("%1000d", 1));
      });
    }
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int run = 0; run < 25; ++run) {
          Process process;
          process.Start("ls /proc/self/fd");
          EXPECT_EQ(process.Wait(0), PROCESS_SUCCESS);
          EXPECT_EQ(process.GetOutputString(), descriptors) << "a descriptor has leaked";
          process.Start("/none");
          EXPECT_EQ(process.Wait(0), PROCESS_ERROR);
          EXPECT_EQ(process.GetOutputString(), "error: /none: No such file or directory\n");
        }
        --starting;
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
}

}  // namespace
