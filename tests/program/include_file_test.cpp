#include <numeric>
#include <regex>

#include "harness.h"

using IncludeFileTest = ProgramTest;

const char* const kPlainFile = EXPECTED_DIR "/40_bytes.inc";
const char* const kLinkedFile = EXPECTED_DIR "/40_bytes_link.inc";

TEST_F(IncludeFileTest, FortyBytesGiveTheFilesOnRecord) {
  std::string bytes(40, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  WriteFile(image_, bytes);
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=inc"), kSuccess);
  EXPECT_EQ(ReadFile("inc"), ReadFile(kPlainFile));
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=inc -link"), kSuccess);
  EXPECT_EQ(ReadFile("inc"), ReadFile(kLinkedFile));
}

TEST_F(IncludeFileTest, WithoutAUsableImageNothingIsBundledAndNothingEmbedded) {
  WriteFile("fat", "fat");
  WriteFile("inc", std::string(10000, 'x'));
  EXPECT_EQ(Run("./tavrofuse -fatbin=inc -create=fat -link -image3=kind=ptx,s,f=a"), kSuccess);
  std::string expected = std::regex_replace(ReadFile(kLinkedFile), std::regex("\"\\.quad.*\n"), "");
  expected.replace(expected.find("[5]"), 3, "[0]");
  EXPECT_EQ(ReadFile("inc"), expected);
  EXPECT_EQ(GetBundlerArgs(), "");
  EXPECT_EQ(ReadFile("fat"), "fat");
}

TEST_F(IncludeFileTest, FailureToWriteIsReportedAndNamedFatBinaryStays) {
  const Result gone = Error("Failed to write gone/i: open file: No such file or directory");
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=gone/i"), gone);
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=gone/i -create=fat"), gone);
  EXPECT_EQ(ReadFile("fat"), "image");
  EXPECT_EQ(Run("./tavrofuse -fatbin=/dev/full"),
            Error("Failed to write /dev/full: write file: No space left on device"));
}

TEST_F(IncludeFileTest, FatBinaryIsReadBackForAnIncludeFileAloneAndFailureReported) {
  EXPECT_EQ(Run("BUNDLER='truncate -s 2147483648 \"$out\"' ./tavrofuse $image3 -fatbin=inc"),
            Error("Failed to malloc, size: 2147483648"));
  EXPECT_EQ(Run("BUNDLER=: ./tavrofuse $image3 -create=gone"), kSuccess);
  EXPECT_EQ(Run("BUNDLER=: ./tavrofuse $image3 -create=gone -fatbin=inc"),
            Error("Failed to read gone: stat64: No such file or directory"));
  EXPECT_EQ(Run("BUNDLER=: ./tavrofuse $image3 -create=. -fatbin=inc"),
            Error("Failed to read .: read file: Is a directory"));
  EXPECT_FALSE(std::filesystem::exists("inc"));
}
