#include "lwlogger.h"

#include <dlfcn.h>

#include "test_support.h"

namespace {

using namespace util;
using testing::MatchesRegex;

const std::string kTimeForm = "[0-9]{8}_[0-9]{6}\\.(0|[1-9][0-9]{0,5})";

struct Logger : LwLogger {
  using LwLogger::RollLogFile;
  explicit Logger(const std::string& folder = "", int keep = 5) {
    SetLogFileNamePrefix("log");
    SetKeepFileCount(keep);
    SetLogDirectory(folder);
    if (!folder.empty()) SetLogToFile();
  }
  void Log(const std::string& text, LogLevel level = kLogInfo) {
    Write(level, 7, "/src/lib/a.cpp", text);
  }
};

struct Output {
  std::string out;
  std::string err;
};

Output Capture(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  body();
  return {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

// Has 8 threads log 200 lines each. `read` should then find them all, whole and once.
void ExpectLinesOfThreads(Logger& logger, const std::function<std::string()>& read) {
  Strings lines;
  for (int i = 0; i < 1600; ++i)
    lines.push_back(std::to_string(1000 + i) + std::string(51, static_cast<char>('a' + i % 26)));
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (size_t i = t; i < 1600; i += 8) logger.Log(lines[i] + "\n");
    });
  for (std::thread& thread : threads) thread.join();
  Strings found;
  SplitString(read(), "\n", found);
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, lines);
}

class LoggerTest : public FolderTest {
 protected:
  // The names of all files in order, without what a log file's name has after its prefix.
  Strings Names() const {
    Strings names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      const std::string name = entry.path().filename();
      names.push_back(name.compare(0, 5, "log.2") == 0 ? "new log" : name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // Makes log files whose status changed in the order of their names, and whose content was
  // modified in the opposite order. The second is later in seconds alone, the third in
  // milliseconds.
  void MakeLogs() const {
    struct stat last = {};
    time_t modified = 1000;
    const auto make = [&](const char* name, const auto& is_late_enough) {
      const struct timespec times[] = {{--modified, 0}, {modified, 0}};
      struct stat status = {};
      for (Make(name, ""); !is_late_enough(status.st_ctim); stat(At(name).c_str(), &status))
        utimensat(AT_FDCWD, At(name).c_str(), times, 0);
      last = status;
    };
    make("log-1.log", [](const timespec& now) { return now.tv_nsec > 100000000; });
    make("log-2.log", [&last](const timespec& now) {
      return now.tv_sec > last.st_ctim.tv_sec && now.tv_nsec < last.st_ctim.tv_nsec;
    });
    make("log-3.log", [&last](const timespec& now) {
      return now.tv_sec > 0 && now.tv_nsec / 1000000 != last.st_ctim.tv_nsec / 1000000;
    });
  }
};

TEST(LwLogger, ThresholdHidesLevelsAboveIt) {
  const struct {
    const char* threshold;  // an unknown name leaves that of "info"
    const char* output;
  } cases[] = {{"fatal", "none fatal: f "},
               {"error", "none fatal: f error: e "},
               {"warning", "none fatal: f error: e warning: w "},
               {"info", "none fatal: f error: e warning: w i "},
               {"debug", "none fatal: f error: e warning: w i d "},
               {"trace", "none fatal: f error: e warning: w i d t "},
               {"Error", "none fatal: f error: e warning: w i "},
               {"", "none fatal: f error: e warning: w i "}};
  const char* const texts[] = {"none ", "f ", "e ", "w ", "i ", "d ", "t "};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.threshold);
    Logger logger;
    logger.SetLogLevel(row.threshold);
    const Output output = Capture([&] {
      for (int level = kLogNone; level < kLogEnd; ++level)
        logger.Log(texts[level], static_cast<LogLevel>(level));
    });
    EXPECT_EQ(output.err, row.output);
  }
}

TEST(LwLogger, FirstConsoleLineChoosesTheStreamForAll) {
  for (const LogLevel first : {kLogNone, kLogFatal, kLogError, kLogWarning, kLogInfo}) {
    SCOPED_TRACE("first line at level " + std::to_string(first));
    Logger logger;
    const Output output = Capture([&] {
      logger.Log("", kLogError);
      logger.Log("hidden", kLogDebug);
      logger.Log("first ", first);
      logger.Log("second ", kLogInfo);
      logger.Log("third ", kLogError);
    });
    EXPECT_THAT(first > kLogError ? output.out : output.err,
                MatchesRegex(".*first second error: third "));
    EXPECT_EQ(first > kLogError ? output.err : output.out, "");
  }
}

TEST(LwLogger, OnlyFormatsAreFormattedAfterThePrefix) {
  Logger logger;
  logger.SetLogProcessName();
  const Output output = Capture([&] {
    logger.Log("%s%% ", kLogFatal);
    errno = ENOENT;
    logger.Write(kLogError, 1, "", "%s%%%d %m ", std::string("c"), 2);
    logger.Write(kLogInfo, 1, "", "");
    logger.Log("x");
  });
  EXPECT_EQ(output.err, "unit_tests fatal: %s%% unit_tests error: c%2 No such file or directory x");
}

TEST(LwLogger, MacrosEvaluateOnlyWhatIsLogged) {
  InFork([] {
    int count = 0;
    SetLogLevel("error");
    const Output output = Capture([&] {
      LOG_INFO("%d ", ++count);
      LOG_ERROR(std::to_string(++count) + "% ");
      LOG_FATAL("%s", std::to_string(++count));
    });
    EXPECT_EQ(output.err, "error: 1% fatal: 2");
  });
}

TEST(LwLogger, AssistHeaderTellsTimeThreadLevelAndPlace) {
  const struct {
    const char* project_path;
    const char* place;
  } cases[] = {{"", "/src/lib/a.cpp"},
               {"/src", "lib/a.cpp"},
               {"lib", "/lib/a.cpp"},
               {"none", "/src/lib/a.cpp"},
               {"/src/lib/a.cpp", ""}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.project_path);
    Logger logger;
    logger.SetLogAssistInfo();
    logger.SetLogProjectPath(row.project_path);
    const auto check = [&] {
      const std::string head = "\\[" + kTimeForm + " " + std::to_string(gettid()) + " ";
      const std::string tail = std::string(" ") + row.place + ":7\\] ";
      EXPECT_THAT(Capture([&] { logger.Log("x", kLogFatal); }).err,
                  MatchesRegex(head + "fatal" + tail + "fatal: x"));
      EXPECT_THAT(Capture([&] { logger.Log("x", kLogNone); }).err, MatchesRegex(head + tail + "x"));
    };
    check();
    std::thread(check).join();
    InFork(check);
  }
  Logger logger;
  logger.SetLogAssistInfo();
  const std::string file(5000, 'f');
  const Output output = Capture([&] { logger.Write(kLogWarning, 1, file.c_str(), "x"); });
  EXPECT_EQ(output.out.substr(4091), "fffwarning: x");
}

TEST_F(LoggerTest, FileIsNamedAfterPrefixTimeHostAndProcess) {
  char host[1024] = {};
  gethostname(host, 1023);
  for (const std::string prefix : {"log", ""}) {
    Logger logger(folder_ + "/");
    logger.SetLogFileNamePrefix(prefix);
    const Output output = Capture([&] {
      logger.Log("2%\n", kLogError);
      logger.Log("4");
    });
    EXPECT_EQ(output.out + output.err, "");
    const fs::path file = fs::directory_iterator(folder_)->path();
    EXPECT_THAT(file.filename().string(),
                MatchesRegex((prefix.empty() ? "unit_tests" : prefix) + "\\." + kTimeForm + "\\." +
                             host + "\\." + std::to_string(getpid()) + "\\.log"));
    EXPECT_EQ(ReadAll(file), "error: 2%\n4");
    fs::remove(file);
  }
}

TEST_F(LoggerTest, FileLiesInTheWorkingDirectoryByDefault) {
  InFork([&] {
    fs::current_path(folder_);
    Logger logger;
    logger.SetLogToFile();
    logger.Log("x");
    EXPECT_EQ(Names(), Strings{"new log"});
  });
}

TEST_F(LoggerTest, OldestFilesThatLookLikeLogsGoForANewOne) {
  const Strings others = {"log.LOG", "log.directory.log", "log.log.1", "other.log"};
  for (const char* name : {"log.LOG", "log.log.1", "other.log"}) Make(name, "");
  fs::create_directory(At("log.directory.log"));
  MakeLogs();
  Strings logs = {"log-1.log", "log-2.log", "log-3.log"};
  for (const auto& [keep, gone] : {std::pair{5, 0}, {4, 0}, {3, 1}, {2, 1}, {-1, 1}}) {
    SCOPED_TRACE("keep " + std::to_string(keep));
    Logger().RollLogFile(folder_, keep);
    logs.erase(logs.begin(), logs.begin() + gone);
    Strings expected = logs;
    expected.insert(expected.end(), others.begin(), others.end());
    EXPECT_EQ(Names(), expected);
  }
}

TEST_F(LoggerTest, OneOfTwoOfTheSameAgeStaysAndAllDoBesideADanglingLink) {
  Make("log-1.log", "");
  fs::create_hard_link(At("log-1.log"), At("log-2.log"));
  Logger(folder_, 1).Log("x");
  EXPECT_EQ(Names().size(), 2U);
  fs::create_symlink("gone", At("dangling"));
  Logger(folder_, 1).Log("x");
  EXPECT_EQ(Names().size(), 4U);
}

TEST_F(LoggerTest, LinesGoToTheConsoleWithoutAFolderAndAfterAnEmptyLine) {
  Logger no_folder(At("none"));
  EXPECT_EQ(Capture([&] { no_folder.Log("x"); }).out, "x");
  Logger logger(folder_);
  logger.Write(kLogInfo, 1, "", "%s", "");
  EXPECT_EQ(Capture([&] { logger.Log("x"); }).out, "x");
}

TEST_F(LoggerTest, LinesGoToTheConsoleWhenTheDiskIsFull) {
  InFork([&] {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    Logger logger(folder_);
    const Output output = Capture([&] {
      logger.Log(std::string(4000, 'x'));
      logger.Log(std::string(100, 'y'));
      logger.Log("z");
    });
    EXPECT_EQ(output.out, std::string(100, 'y') + "z");
  });
}

TEST_F(LoggerTest, LinesOfThreadsArriveWholeAndOnceAlsoWhenTheFileIsFull) {
  Logger console;
  testing::internal::CaptureStdout();
  ExpectLinesOfThreads(console, testing::internal::GetCapturedStdout);
  Logger logger(folder_);
  const std::string large(64 * 1024 * 1024 - 2, '4');
  logger.Log(large + "\n");
  ExpectLinesOfThreads(logger, [&] {
    std::string tails;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      const bool is_full = entry.file_size() == large.size() + 57;
      tails += ReadAll(entry.path()).substr(is_full ? large.size() : 0);
    }
    return tails;
  });
}

TEST_F(LoggerTest, ChildOfForkLogsWhateverThreadsOfItsParentDo) {
  InFork([this] {
    LwLogger& logger = LwLogger::GetLogger();
    logger.SetLogAssistInfo();
    logger.SetLogDirectory(folder_);
    logger.SetLogToFile();
    std::atomic<bool> is_forking = true;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
      threads.emplace_back([&] {
        while (is_forking) LOG_INFO("parent\n");
      });
    }
    for (int i = 0; i < 100 && !HasFailure(); ++i) {
      const pid_t child = fork();
      if (child == 0) {
        alarm(20);
        LOG_INFO("child\n");
        _exit(0);
      }
      int status = 0;
      waitpid(child, &status, 0);
      EXPECT_EQ(status, 0) << "it hangs";
    }
    is_forking = false;
    for (std::thread& thread : threads) thread.join();
  });
}

TEST_F(LoggerTest, PluginThatLogsCanBeUnloaded) {
  InFork([this] {
    void* plugin = dlopen(PLUGIN, RTLD_NOW);
    ASSERT_NE(plugin, nullptr) << dlerror();
    const auto log = reinterpret_cast<void (*)(const char*)>(dlsym(plugin, "Log"));
    log(folder_.c_str());
    dlclose(plugin);
    EXPECT_EQ(dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is still loaded";
    InFork([] {});  // its handlers are gone too
    EXPECT_EQ(ReadAll(fs::directory_iterator(folder_)->path()), "error: from a plug-in\n");
  });
}

TEST_F(LoggerTest, ProgramsLogFromTheirFirstToTheirLastInstruction) {
  FILE* program = popen(("'" LOG_LIFETIME "' " + folder_ + " 2>&1").c_str(), "r");
  ASSERT_NE(program, nullptr);
  std::string console(1024, '\0');
  console.resize(fread(console.data(), 1, console.size(), program));
  EXPECT_EQ(pclose(program), 0);
  EXPECT_EQ(console, "error: first\nerror: last\n");
  EXPECT_EQ(ReadAll(fs::directory_iterator(folder_)->path()),
            "limit: 5\nthread ends\nat exit\nerror: destroyed\n");
}

}  // namespace
