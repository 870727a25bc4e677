#ifndef TAVROFUSE_TESTS_UNIT_TEST_SUPPORT_H_
#define TAVROFUSE_TESTS_UNIT_TEST_SUPPORT_H_

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "misc.h"

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

/// A fresh folder for each test. It goes with all that is in it.
class FolderTest : public testing::Test {
 protected:
  ~FolderTest() override { fs::remove_all(folder_); }
  std::string At(const std::string& name) const { return folder_ + "/" + name; }
  std::string Make(const std::string& name, const std::string& content) const {
    std::ofstream(At(name)) << content;
    return At(name);
  }

  std::string pattern_ = testing::TempDir() + "/unit-XXXXXX";
  const std::string folder_ = mkdtemp(pattern_.data());
};

inline std::string ReadAll(const std::string& file) {
  std::ostringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

/// Tells where two long texts begin to differ, without printing all of them.
constexpr char kNone[] = "nowhere";
inline std::string FirstDifference(const std::string& actual, const std::string& expected) {
  if (actual == expected) return kNone;
  size_t at = 0;
  while (at < actual.size() && at < expected.size() && actual[at] == expected[at]) ++at;
  return "at byte " + std::to_string(at) + " of " + std::to_string(actual.size()) + ": \"" +
         actual.substr(at, 20) + "\" in place of \"" + expected.substr(at, 20) + "\"";
}

inline auto CountOpenFiles() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

/// Runs `body` in a child process. The child prints its failed expectations itself; the test here
/// then fails as well.
inline void InFork(const std::function<void()>& body) noexcept {
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    body();
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_FALSE(WIFSIGNALED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "expectations failed, see above";
}

#endif  // TAVROFUSE_TESTS_UNIT_TEST_SUPPORT_H_
