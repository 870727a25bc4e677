#include <regex>

#include "harness.h"

using BundleTest = ProgramTest;

TEST_F(BundleTest, TemporaryNameTellsImageAndLocalTimeAndDiffersFromRunToRun) {
  const struct {
    std::string image;
    std::string stem;
  } kNames[] = {{"./" + image_, stem_}, {"a.tar.o", "a.tar"}, {"b", "b"}, {".o", ""}};
  // The clock of `date` can be a little ahead of the one that the tool reads.
  const std::string print_time = "printf %x%x%x%x%x $(date '+%-m %-d %-H %-M %-S' -d ";
  std::string last_digits;
  for (const auto& row : kNames) {
    SCOPED_TRACE(row.image);
    const Result result =
        Run("export BUNDLER=: TZ=EAST-5:30; " + print_time + "'1 second ago'); printf '|'; " +
            print_time + "now); printf '|'; ./tavrofuse --image3=kind=elf,s,f=" + row.image +
            " && " + print_time + "now)");
    const std::string args = GetBundlerArgs();
    const std::regex form("=(/tmp/" + row.stem + "-(" + result.out +
                          ")-([0-9a-f]{16})\\.fatbin)\n$");
    std::smatch name;
    ASSERT_TRUE(std::regex_search(args, name, form)) << args << "at " << result.out;
    EXPECT_NE(name[3], last_digits);
    last_digits = name[3];
  }
}

TEST_F(BundleTest, OutcomeOfTheBundlerDecidesAndItsWordsArePassedOnAsTheyAre) {
  const struct {
    const char* end;
    int status;
    bool is_written;
  } kBundlers[] = {
      {"exit 0", 0, true},
      {"exit 255", 1, false},
      {"kill -15 $$", 1, false},
      // What tavrofuse itself sends to a bundler that hangs; it knows of that from elsewhere.
      {"kill -9 $$", 0, true},
  };
  for (const auto& row : kBundlers) {
    SCOPED_TRACE(row.end);
    WriteFile("inc", "before");
    setenv("BUNDLER",
           (R"(cp "$in" "$out"; echo '100% %s %n'; printf '\377%%%%' >&2; )" + std::string(row.end))
               .c_str(),
           1);
    const Result expected = {row.status, "100% %s %n\n\xff%%", ""};
    EXPECT_EQ(Run("./tavrofuse $image3 --embedded-fatbin=inc"), expected);
    EXPECT_EQ(ReadFile("inc") != "before", row.is_written);
  }
}

TEST_F(BundleTest, BundlerThatCannotBeStartedIsNamed) {
  std::filesystem::create_directory("clang-offload-bundler");
  const Result expected = {1, "error: ./clang-offload-bundler: Permission denied\n", ""};
  EXPECT_EQ(Run("./tavrofuse $image3 --clang-path=."), expected);
}

TEST_F(BundleTest, LogLevelHidesLinesButNotTheStatus) {
  const std::string error = "tavrofuse error: Failed to write .: open file: Is a directory\n";
  const struct {
    const char* level;
    Result result;
  } kLevels[] = {
      {"fatal", {1, "", ""}},
      {"error", {1, "", error}},
      {"warning", {1, "", error}},
      // The first line chooses the stream for all. An error goes on where the bundler stopped.
      {"info", {1, "bundled" + error, ""}},
      {"debug", {1, "bundled" + error, ""}},
      {"trace", {1, "bundled" + error, ""}},
      {"Fatal", {1, "bundled" + error, ""}},
      {"none", {1, "bundled" + error, ""}},
  };
  for (const auto& row : kLevels) {
    EXPECT_EQ(Run("BUNDLER='printf bundled >\"$out\"; printf bundled' ./tavrofuse $image3 -fatbin=."
                  " -log-level=" +
                  std::string(row.level)),
              row.result)
        << row.level;
  }
}
