#include <map>
#include <regex>

#include "harness.h"

using BundleTest = ProgramTest;

TEST_F(BundleTest, TemporaryNameTellsImageAndLocalTimeAndDiffersFromRunToRun) {
  const std::string token = "printf %x%x%x%x%x $(date '+%-m %-d %-H %-M %-S')";
  const std::map<std::string, std::string> stems = {
      {"./" + image_, stem_}, {"a.tar.o", "a.tar"}, {"b", "b"}, {".o", ""}};
  std::string last_digits;
  for (const auto& [image, stem] : stems) {
    const std::string tokens = std::get<1>(
        Run("export TZ=EAST-5:30; " + token +
            "; printf '|'; ./tavrofuse --image3=kind=elf,s,f=" + image + " && " + token));
    const std::string args = GetBundlerArgs();
    const std::regex form("=(/tmp/" + stem + "-(" + tokens + ")-([0-9a-f]{16})\\.fatbin)\n$");
    std::smatch name;
    ASSERT_TRUE(std::regex_search(args, name, form)) << args;
    EXPECT_FALSE(std::filesystem::exists(name[1].str()));
    EXPECT_NE(name[3], last_digits);
    last_digits = name[3];
  }
}

TEST_F(BundleTest, OutcomeOfTheBundlerDecidesAndItsWordsArePassedOnAsTheyAre) {
  const auto expect_status = [&](const std::string& setting, int status) {
    WriteFile("inc", "before");
    EXPECT_EQ(Run("BUNDLER_STDOUT='100% %s %n\n' BUNDLER_STDERR='\xff%%' " + setting +
                  " ./tavrofuse $image3 --embedded-fatbin=inc"),
              Result(status, "100% %s %n\n\xff%%", ""));
    EXPECT_EQ(ReadFile("inc") == "before", status != 0);
  };
  expect_status("BUNDLER_EXIT=0", 0);
  expect_status("BUNDLER_EXIT=255", 1);
  expect_status("BUNDLER_SIGNAL=15", 1);
  // What tavrofuse itself sends to a bundler that hangs; it knows of that from elsewhere.
  expect_status("BUNDLER_SIGNAL=9", 0);
  std::filesystem::create_directory("clang-offload-bundler");
  EXPECT_EQ(Run("./tavrofuse $image3 --clang-path=."),
            Result(1, "error: ./clang-offload-bundler: Permission denied\n", ""));
}

TEST_F(BundleTest, LogLevelHidesLinesButNotTheStatus) {
  const std::string error = "tavrofuse error: Failed to write .: open file: Is a directory\n";
  const auto run_at = [&](const std::string& level) {
    return Run("BUNDLER_STDOUT=bundled ./tavrofuse $image3 -fatbin=. -log-level=" + level);
  };
  EXPECT_EQ(run_at("fatal"), Result(1, "", ""));
  EXPECT_EQ(run_at("error"), Result(1, "", error));
  EXPECT_EQ(run_at("warning"), Result(1, "", error));
  // The first line chooses the stream for all. An error goes on where the bundler stopped.
  for (const char* level : {"info", "debug", "trace", "Fatal", "none"}) {
    EXPECT_EQ(run_at(level), Result(1, "bundled" + error, "")) << level;
  }
}
