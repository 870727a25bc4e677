#include "process.h"

#include "test_support.h"

namespace {

using namespace util;

class ProcessTest : public FolderTest {
 protected:
  // The command that runs `text` as a shell script. Commands know no quoting, so it is in a file.
  std::string Script(const std::string& text) const { return "sh " + Make("script", text); }

  // Awaits the end of the child, which stays to be collected, and returns its exit code.
  static int AwaitEnd() {
    siginfo_t info = {};
    return waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) == 0 ? info.si_status : -1;
  }

  // Expects what a command came to: no child is left then.
  void Expect(ProcessStatus actual, ProcessStatus status, const std::string& output,
              const std::string& text = "The child process exits unexpectedly") {
    EXPECT_EQ(actual, status) << output;
    ExpectPairs({{process_.GetOutputString(), output}});
    EXPECT_EQ(GetLastError(), status == PROCESS_ERROR ? text : "none");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    SetLastError("none");
  }

  Process process_;
};

TEST_F(ProcessTest, WaitTellsHowTheChildEnded) {
  SetLastError("none");
  const std::string pad(50, 'x');
  std::string large;
  for (int i = 1; i <= 6000; ++i) large += std::to_string(i) + pad + "\n";
  const std::string loop = "while [ $((i+=2)) -le 6000 ]; do echo $((i-1))$x; echo $i$x >&2; done";
  const std::string chunk = "head" + std::string(4092, '\0') + "tail";
  const std::tuple<std::string, uint64_t, ProcessStatus, std::string> cases[] = {
      {"x=" + pad + ";" + loop, 0, PROCESS_SUCCESS, large},
      {"exec cat " + Make("data", chunk), 0, PROCESS_SUCCESS, "headtail"},
      {"echo 1; exit 3", 0, PROCESS_ERROR, "1\n"},
      {"kill -TERM $$", 0, PROCESS_ERROR, ""},
      {"kill -KILL $$", 0, PROCESS_SUCCESS, ""},
      {"echo 1; exec sleep 100", 200, PROCESS_TIMEOUT, "1\n"},
      {"for i in 1 2 3; do sleep 0.4; echo $i; done", 1001, PROCESS_SUCCESS, "1\n2\n3\n"},
      {"exec >&- 2>&-; sleep 0.2; exit 4", 100, PROCESS_ERROR, ""},
      {"(sleep 0.2; echo 2) & echo 1", 0, PROCESS_SUCCESS, "1\n2\n"},
      {"sleep 1 & echo 1", 100, PROCESS_TIMEOUT, "1\n"}};
  const auto open_before = CountOpenFiles();
  for (const auto& [script, timeout, status, output] : cases)
    Expect(process_.Execute(Script(script), timeout), status, output);
  EXPECT_EQ(CountOpenFiles(), open_before);
}

TEST_F(ProcessTest, CommandsAreWordsBetweenBlanks) {
  SetLastError("none");
  // A folder that this user can't look into would change the reason.
  SetEnvVar("PATH", "/usr/bin:/bin");
  const std::string command = "  " + Script("printf '<%s>' \"$@\"") + "  a  'b c' $x\t* ";
  Expect(process_.Execute(command, 0), PROCESS_SUCCESS, "<a><'b><c'><$x\t*>");
  const std::string gone = ": No such file or directory\n";
  const std::tuple<const char*, std::string, int> cases[] = {
      {"/none/a b", "error: /none/a" + gone, ENOENT},
      {"unknown-program", "error: unknown-program" + gone, ENOENT},
      {"   ", "error: " + gone, ENOENT},
      {"/", "error: /: Permission denied\n", EACCES}};
  for (const auto& [bad, output, code] : cases) {
    EXPECT_TRUE(process_.Create(bad) == PROCESS_SUCCESS && AwaitEnd() == code) << output;
    Expect(process_.Wait(0), PROCESS_ERROR, output);
  }
}

TEST_F(ProcessTest, OneChildIsHeldAtATime) {
  Expect(process_.Execute("", 0), PROCESS_ERROR, "", "command is empty");
  Expect(process_.Wait(0), PROCESS_ERROR, "", "invalid pid or pipe id");
  EXPECT_EQ(process_.Create("sleep 100"), PROCESS_SUCCESS);
  process_.GetOutputString() = "kept";
  EXPECT_EQ(process_.Execute("echo other", 0), PROCESS_RUNNING);
  EXPECT_TRUE(process_.IsRunning() && process_.Kill());
  Expect(process_.Wait(0), PROCESS_SUCCESS, "kept");
  Expect(process_.Wait(0), PROCESS_ERROR, "kept", "invalid pid or pipe id");
  EXPECT_TRUE(process_.Create("true") == PROCESS_SUCCESS && AwaitEnd() == 0);
  EXPECT_FALSE(process_.IsRunning());
  Expect(process_.Wait(0), PROCESS_ERROR, "", "waitpid: No child processes");
}

TEST_F(ProcessTest, DestructionClosesThePipeAndLetsTheChildGoOn) {
  mkfifo(At("fifo").c_str(), 0600);
  std::fstream fifo(At("fifo"));
  const auto open_before = CountOpenFiles();
  Process().Create(Script("read line < " + At("fifo") + "; exit $line"));
  EXPECT_EQ(CountOpenFiles(), open_before);
  fifo << "7" << std::endl;
  EXPECT_EQ(AwaitEnd(), 7);
  waitpid(-1, nullptr, 0);
}

TEST_F(ProcessTest, SignalAndHighDescriptorAreFailures) {
  EXPECT_TRUE(HoldsInFork([this] {
    signal(SIGALRM, [](int) {});
    const struct itimerval often = {{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    Expect(process_.Execute("sleep 100", 0), PROCESS_ERROR, "", "select: Interrupted system call");
    const struct rlimit files = {2000, 2000};
    setrlimit(RLIMIT_NOFILE, &files);
    while (dup(STDERR_FILENO) < FD_SETSIZE) continue;
    const auto open_before = CountOpenFiles();
    EXPECT_EQ(process_.Execute("echo x", 0), PROCESS_ERROR);
    EXPECT_EQ(GetLastError().substr(0, 13), "create pipe: ");
    EXPECT_EQ(CountOpenFiles(), open_before);
  }));
}

TEST_F(ProcessTest, OutputArrivesWhenStandardStreamsAreClosed) {
  for (int closed = 1; closed < 8; ++closed) {
    EXPECT_TRUE(HoldsInFork([this, closed] {
      SetLastError("none");
      for (int fd = 0; fd < 3; ++fd) (closed >> fd) % 2 == 1 ? close(fd) : 0;
      Expect(process_.Execute(Script("echo 1; echo 2 >&2"), 0), PROCESS_SUCCESS, "1\n2\n");
    })) << closed;
  }
}

}  // namespace
