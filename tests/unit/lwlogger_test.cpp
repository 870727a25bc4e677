#include "lwlogger.h"

#include "test_support.h"

namespace {

using namespace util;
using testing::MatchesRegex;

const std::string kTimeForm = "[0-9]{8}_[0-9]{6}\\.(0|[1-9][0-9]{0,5})";

struct Logger : LwLogger {
  explicit Logger(const std::string& folder = "", int keep = 5) {
    SetLogFileNamePrefix("log");
    SetKeepFileCount(keep);
    SetLogDirectory(folder);
    if (!folder.empty()) SetLogToFile();
  }
  // Writes each text at the level that is its first digit.
  void Log(const Strings& texts) {
    for (const std::string& text : texts)
      Write(static_cast<LogLevel>(text[0] - '0'), 7, "/src/lib/a.cpp", text);
  }
};

// What `body` wrote to standard output, a "|", and what it wrote to standard error.
std::string Capture(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  body();
  const std::string out = testing::internal::GetCapturedStdout() + "|";
  return out + testing::internal::GetCapturedStderr();
}

// Has 8 threads log 200 lines each. `read` should then find them all, whole and once.
void ExpectLinesOfThreads(Logger& logger, const std::function<std::string()>& read) {
  Strings lines;
  for (int i = 0; i < 1600; ++i)
    lines.push_back("4" + std::to_string(1000 + i) +
                    std::string(51, static_cast<char>('a' + i % 26)));
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (size_t i = t; i < 1600; i += 8) logger.Log({lines[i] + "\n"});
    });
  for (std::thread& thread : threads) thread.join();
  Strings found;
  SplitString(read(), "\n", found);
  std::sort(found.begin(), found.end());
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(found, lines);
}

class LoggerTest : public FolderTest {
 protected:
  // The names of all files up to their fifth character, each with a blank behind it, in order.
  std::string Names() const {
    Strings names;
    for (const auto& entry : fs::directory_iterator(folder_))
      names.push_back(entry.path().filename().string().substr(0, 5) + " ");
    std::sort(names.begin(), names.end());
    return std::accumulate(names.begin(), names.end(), std::string());
  }

  // Makes log files whose status changed in the order of their names, a millisecond apart at
  // least, and whose content was modified in the opposite order.
  void MakeLogs(const Strings& names) const {
    struct stat status = {};
    time_t modified = 1000;
    for (const std::string& name : names) {
      const struct timespec times[] = {{--modified, 0}, {modified, 0}};
      const long last = status.st_ctim.tv_nsec / 1000000;
      for (Make(name, ""); status.st_ctim.tv_nsec / 1000000 == last;
           stat(At(name).c_str(), &status))
        utimensat(AT_FDCWD, At(name).c_str(), times, 0);
    }
  }
};

TEST(LwLogger, LevelsFilterAndPrefixLines) {
  const std::string lines[] = {"0%s%%", "fatal: 1%s%%", "error: 2%s%%", "warning: 3%s%%",
                               "4%s%%", "5%s%%",        "6%s%%",        ""};
  std::string expected = "|" + lines[0];
  for (const std::string name : {"fatal", "error", "warning", "info", "debug", "trace", "Fatal"}) {
    Logger logger;
    logger.SetLogLevel("trace"), logger.SetLogLevel(name);
    expected += lines[std::count(expected.begin(), expected.end(), 's')];
    EXPECT_EQ(Capture([&] {
                logger.Log({"0%s%%", "1%s%%", "2%s%%", "3%s%%", "4%s%%", "5%s%%", "6%s%%"});
              }),
              expected);
  }
}

TEST(LwLogger, FirstConsoleLineChoosesTheStreamForAll) {
  const std::string name = "unit_tests ";
  for (const std::string first : {"0", "fatal: 1", "error: 2", "warning: 3", "4"}) {
    Logger logger;
    logger.SetLogProcessName();
    const std::string output = Capture([&] {
      logger.Write(kLogError, 1, "", std::string()), logger.Write(kLogError, 1, "", "");
      logger.Write(kLogDebug, 1, "", "off");
      logger.Log({first.substr(first.size() - 1), "4"});
      logger.Write(kLogError, 1, "", "%s%%%d\n", std::string("c"), 2);
    });
    const std::string text = (first.size() > 1 ? name : "") + first + "4" + name + "error: c%2\n";
    EXPECT_EQ(output, first.back() > '2' ? text + "|" : "|" + text);
  }
}

TEST(LwLogger, MacrosEvaluateOnlyWhatIsLogged) {
  EXPECT_TRUE(HoldsInFork([] {
    int count = 0;
    const auto log = [&] {
      LOG_DEBUG("%d ", ++count);
      LOG_INFO("%d ", ++count);
      LOG_ERROR(std::to_string(++count) + "% ");
      LOG_FATAL("%s", std::to_string(++count));
    };
    const std::string output =
        Capture([&] { SetLogLevel("error"), log(), SetLogLevel("debug"), log(); });
    EXPECT_EQ(output, "|error: 1% fatal: 23 4 error: 5% fatal: 6");
  }));
}

TEST(LwLogger, AssistHeaderTellsTimeThreadLevelAndPlace) {
  const Strings cases[] = {
      {"", "/src/lib/a.cpp"}, {"/src", "lib/a.cpp"}, {"lib", "/lib/a.cpp"}, {"/src/lib/a.cpp", ""}};
  for (const Strings& row : cases) {
    Logger logger;
    logger.SetLogAssistInfo();
    logger.SetLogProjectPath(row[0]);
    const auto check = [&] {
      const std::string head = "\\[" + kTimeForm + " " + std::to_string(gettid()) + " ";
      const std::string tail = " " + row[1] + ":7\\] ";
      const std::string output = Capture([&] { logger.Log({"2", "0"}); });
      EXPECT_THAT(output,
                  MatchesRegex("\\|" + head + "error" + tail + "error: 2" + head + tail + "0"));
    };
    check();
    std::thread(check).join();
  }
  Logger logger;
  logger.SetLogAssistInfo();
  const auto log = [&] { logger.Write(kLogWarning, 1, std::string(5000, 'f').c_str(), "x"); };
  EXPECT_EQ(Capture(log).substr(4091), "fffwarning: x|");
}

TEST_F(LoggerTest, FileIsNamedAfterPrefixTimeHostAndProcess) {
  EXPECT_TRUE(HoldsInFork([&] {
    fs::current_path(folder_);
    Logger logger(folder_ + "/");
    Logger unset;
    unset.SetLogFileNamePrefix("");
    unset.SetLogToFile();
    EXPECT_EQ(Capture([&] { logger.Log({"2%\n", "4"}), unset.Log({"4"}); }), "|");
    char host[1024] = {};
    gethostname(host, 1023);
    const std::string form = "(log|unit_tests)\\." + kTimeForm + "\\." + host + "\\." +
                             std::to_string(getpid()) + "\\.log";
    for (const auto& entry : fs::directory_iterator(folder_)) {
      const std::string name = entry.path().filename();
      EXPECT_THAT(name, MatchesRegex(form));
      EXPECT_EQ(ReadAll(name), name[0] == 'u' ? "4" : "error: 2%\n4");
    }
    EXPECT_EQ(Names(), "log.2 unit_ ");
  }));
}

TEST_F(LoggerTest, OldestFilesThatLookLikeLogsGoForANewOne) {
  const std::pair<int, const char*> cases[] = {{3, "log-2 log-3 log.2 "},
                                               {4, "log-1 log-2 log-3 log.2 "},
                                               {5, "log-1 log-2 log-3 log.2 "},
                                               {1, "log.2 "},
                                               {0, "log.2 "},
                                               {-1, "log.2 "}};
  for (const auto& [keep, logs] : cases) {
    fs::remove_all(folder_);
    fs::create_directories(At("log.directory.log"));
    for (const char* name : {"other.log", "log.LOG", "log.log.1"}) Make(name, "");
    MakeLogs({"log-1.log", "log-2.log", "log-3.log"});
    Logger(folder_, keep).Log({"4"});
    EXPECT_EQ(Names(), std::string(logs) + "log.L log.d log.l other ") << keep;
  }
}

TEST_F(LoggerTest, OneOfTwoWithTheSameTimeStaysAndAllDoBesideADanglingLink) {
  MakeLogs({"log-1.log"});
  fs::create_hard_link(At("log-1.log"), At("log-2.log"));
  Logger(folder_, 1).Log({"4"});
  const std::string names = Names();
  EXPECT_TRUE(names == "log-1 log.2 " || names == "log-2 log.2 ") << names;
  fs::create_symlink("gone", At("dangling"));
  Logger(folder_, 1).Log({"4"});
  EXPECT_EQ(Names(), "dangl " + names + "log.2 ");
}

TEST_F(LoggerTest, LinesGoBackToTheConsoleWhenTheFileFails) {
  Logger gone(At("none"));
  EXPECT_EQ(Capture([&] { gone.Log({"4", "2"}); }), "4error: 2|");
  Logger empty(folder_);
  EXPECT_EQ(Capture([&] { empty.Write(kLogInfo, 1, "", "%s", ""), empty.Log({"4"}); }), "4|");
  EXPECT_TRUE(HoldsInFork([&] {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    Logger logger(folder_);
    const std::string line(100, '4');
    EXPECT_EQ(Capture([&] { logger.Log({std::string(4000, '4'), line, "4"}); }), line + "4|");
  }));
}

TEST_F(LoggerTest, LinesOfThreadsArriveWholeAndOnceAlsoWhenTheFileIsFull) {
  Logger console;
  testing::internal::CaptureStdout();
  ExpectLinesOfThreads(console, testing::internal::GetCapturedStdout);
  Logger logger(folder_);
  const std::string large(64 * 1024 * 1024 - 2, '4');
  logger.Log({large + "\n"});
  ExpectLinesOfThreads(logger, [&] {
    std::string tails;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      const bool is_full = entry.file_size() == large.size() + 58;
      tails += ReadAll(entry.path()).substr(is_full ? large.size() : 0);
    }
    return tails;
  });
}

TEST_F(LoggerTest, ProcessesThatRollTheSameFolderKeepLogging) {
  EXPECT_TRUE(HoldsInFork(
      [this] {
        for (int i = 0; i < 100; ++i) {
          Logger logger(folder_, 2);
          EXPECT_EQ(Capture([&] { logger.Log({"4", "4"}); }), "|");
        }
      },
      2));
}

}  // namespace
