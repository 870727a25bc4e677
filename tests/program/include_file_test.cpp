#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "harness.h"

using IncludeFileTest = ProgramTest;

const char* const kOnRecord[] = {EXPECTED_DIR "/40_bytes.inc", EXPECTED_DIR "/40_bytes_link.inc"};

// The include file for a fat binary: the file for the 40 bytes with other words.
static std::string MakeExpected(const std::string& fat_binary, size_t form) {
  const size_t word_count = (fat_binary.size() + 7) / 8;
  std::string lines;
  for (size_t word = 0; word < word_count; ++word) {
    uint64_t value = 0;
    for (size_t byte = 8 * word; byte < std::min(fat_binary.size(), 8 * word + 8); ++byte) {
      value |= uint64_t{static_cast<unsigned char>(fat_binary[byte])} << byte % 8 * 8;
    }
    char digits[32];
    snprintf(digits, sizeof(digits), "0x%016lx", value);
    lines += (word % 4 == 0 ? "\".quad " : ",") + std::string(digits);
    lines += word % 4 == 3 || word + 1 == word_count ? "\\n\"\n" : "";
  }
  std::string text = ReadFile(kOnRecord[form]);
  text.replace(text.find("[5]") + 1, 1, std::to_string(word_count));
  const size_t begin = text.find("\".quad");
  return text.replace(begin, text.find("\".text") - begin, lines);
}

TEST_F(IncludeFileTest, FortyBytesGiveTheFilesOnRecord) {
  for (char byte = 0; byte < 40; ++byte) {
    WriteFile(image_, ReadFile(image_) + byte);
  }
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=inc"), kSuccess);
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=inc_link -link"), kSuccess);
  EXPECT_EQ(ReadFile("inc") + ReadFile("inc_link"),
            ReadFile(kOnRecord[0]) + ReadFile(kOnRecord[1]));
}

TEST_F(IncludeFileTest, AnySizeGivesAllBytesAndZerosBehindThem) {
  const auto expect_files = [this](size_t first, size_t last) {
    const std::string bytes = MakeBytes(last);
    WriteFile(image_, bytes);
    const std::string range = std::to_string(first) + " " + std::to_string(last);
    EXPECT_EQ(Run("for size in $(seq " + range +
                  "); do BUNDLER_SIZE=$size ./tavrofuse $image3 -create=fat -fatbin=inc.$size"
                  " $([ $((size / 8 % 2)) = 0 ] || echo -link) || exit; done"),
              kSuccess);
    for (size_t size = first; size <= last; ++size) {
      ASSERT_TRUE(ReadFile("inc." + std::to_string(size)) ==
                  MakeExpected(bytes.substr(0, size), size / 8 % 2))
          << size << " bytes";
    }
  };
  expect_files(0, 1600);
  expect_files(3000009, 3000009);
}

TEST_F(IncludeFileTest, WithoutAUsableImageNothingIsBundledAndNothingEmbedded) {
  WriteFile("fat", "fat");
  WriteFile("inc", std::string(10000, 'x'));
  EXPECT_EQ(Run("./tavrofuse -fatbin=inc -create=fat -link -image3=kind=ptx,s,f=a"), kSuccess);
  EXPECT_EQ(ReadFile("inc"), MakeExpected("", 1));
  EXPECT_EQ(GetBundlerArgs() + ReadFile("fat"), "fat");
}

TEST_F(IncludeFileTest, FailureToWriteIsReportedAndNamedFatBinaryStays) {
  WriteFile(image_, "image");
  const Result gone = Error("Failed to write gone/i: open file: No such file or directory");
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=gone/i"), gone);
  EXPECT_EQ(Run("./tavrofuse $image3 -fatbin=gone/i -create=fat"), gone);
  EXPECT_EQ(Run("./tavrofuse -fatbin=/dev/full"),
            Error("Failed to write /dev/full: write file: No space left on device"));
  EXPECT_EQ(ReadFile("fat"), "image");
}

TEST_F(IncludeFileTest, FatBinaryIsReadBackForAnIncludeFileAloneAndFailureReported) {
  EXPECT_EQ(Run("BUNDLER_SIZE=2147483648 ./tavrofuse $image3 -fatbin=inc"),
            Error("Failed to malloc, size: 2147483648"));
  EXPECT_EQ(Run("BUNDLER_WRITES=nothing ./tavrofuse $image3 -create=gone"), kSuccess);
  EXPECT_EQ(Run("BUNDLER_WRITES=nothing ./tavrofuse $image3 -create=gone -fatbin=inc"),
            Error("Failed to read gone: stat64: No such file or directory"));
  EXPECT_EQ(Run("BUNDLER_WRITES=nothing ./tavrofuse $image3 -create=. -fatbin=inc"),
            Error("Failed to read .: read file: Is a directory"));
  EXPECT_FALSE(std::filesystem::exists("inc"));
}
