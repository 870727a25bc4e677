#include "file.h"

#include "test_support.h"

namespace {

using util::File;
using FileTest = FolderTest;

TEST_F(FileTest, FailuresAreToldByResultAndText) {
  const std::string dir = At("dir");
  fs::create_directory(dir);
  const std::string src = Make("dir/src", "abc");
  const std::string dst = Make("dst", "kept");
  const std::string none = At("none");
  const std::string gone = "No such file or directory";
  const std::string full = "write file: No space left on device";
  const uint8_t byte = 7;
  uint8_t* bin = nullptr;
  std::string text = "old";
  const std::pair<std::function<bool()>, std::string> cases[] = {
      {[&] { return File(none).ReadText(text); }, "open file: " + gone},
      {[&] { return File("").ReadText(text); }, "open file: invalid input paramters"},
      {[&] { return File(dir).ReadText(text); }, "read file: Is a directory"},
      {[&] { return File("/dev/full").WriteText("x", true); }, full},
      {[&] { return File("/dev/full").WriteText(std::string(99999, 'x'), false); }, full},
      {[&] { return File(none).ReadBinary(bin) != -1; }, "stat64: " + gone},
      {[&] { return File("").ReadBinary(bin) != -1; }, "the file string is empty"},
      {[&] { return File(dir).ReadBinary(bin) != -1; }, "read file: Is a directory"},
      {[&] { return File(none).WriteBinary(&byte, 0, false); }, "invalid binary size"},
      {[&] { return File(none).WriteBinary(nullptr, 1, false); }, "invalid binary pointer"},
      {[&] { return File::CopyFile(dst, none); }, "open file '" + none + "': " + gone},
      {[&] { return File::CopyFile(dir, src); }, "open file '" + dir + "': Is a directory"},
      {[&] { return File::CopyFile("/dev/full", src); }, full},
      {[&] { return File::CopyFile(At("copy"), dir); }, "read file: Is a directory"},
      {[&] { return File::DeleteFile(""); }, "invalid paramter"},
      {[&] { return File::DeleteFile(dir); }, "remove: Directory not empty"}};
  const auto open_before = CountOpenFiles();
  for (const auto& [operation, reason] : cases) {
    EXPECT_FALSE(operation()) << reason;
    EXPECT_EQ(util::GetLastError(), reason);
  }
  EXPECT_EQ(CountOpenFiles(), open_before);
  EXPECT_TRUE(bin == nullptr && text == "old" && ReadAll(dst) == "kept" && !fs::exists(none));
}

TEST_F(FileTest, TextIsWrittenWholeAndReadUpToAZeroByteInEachChunk) {
  const std::string chunk(4095, 'y');
  const std::string begin = std::string("head").append(1, '\0').append(4090, 'x') + chunk;
  const std::string end("tail\0lost", 9);
  File file(Make("file", "old"));
  EXPECT_TRUE(file.WriteText(begin, false) && file.WriteText(end, true));
  EXPECT_TRUE(ReadAll(At("file")) == begin + end);
  std::string text = "before ";
  EXPECT_TRUE(file.ReadText(text) && text == "before head" + chunk + "tail") << text;
  EXPECT_TRUE(file.WriteText("", false) && File::GetFileSize(At("file")) == 0);
}

TEST_F(FileTest, ReadBinaryReadsOnceAndUpToTheSizeAtTheStart) {
  const std::string content = "a" + std::string(300000, '\0') + "z";
  const auto* bytes = reinterpret_cast<const uint8_t*>(content.data());
  File file(At("file"));
  uint8_t* bin = nullptr;
  EXPECT_EQ(file.ReadBinary(bin), -1);
  EXPECT_TRUE(file.WriteBinary(bytes, 300002, false) && file.WriteBinary(bytes, 1, true));
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(file.ReadBinary(bin), 300003);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bin), 300003), content + "a");
    EXPECT_TRUE(File(At("file")).WriteBinary(bytes, 5, false));
  }
  EXPECT_EQ(ReadAll(At("file")), content.substr(0, 5));
  // This file has the size 0 and bytes to read, like one that grows meanwhile.
  File growing("/proc/self/maps");
  bin = nullptr;
  EXPECT_TRUE(growing.ReadBinary(bin) == 0 && bin != nullptr);
}

TEST_F(FileTest, CopyGoesFromTheSecondToTheFirstAndDeleteMissesNothing) {
  const std::string content = std::string(9000, '\0') + "end";
  EXPECT_TRUE(File::CopyFile(Make("copy", content + "longer"), Make("source", content)));
  EXPECT_TRUE(ReadAll(At("copy")) == content && ReadAll(At("source")) == content);
  fs::create_directory(At("dir"));
  for (const std::string& path : {At("copy"), At("dir"), At("missing")})
    EXPECT_TRUE(File::DeleteFile(path) && !fs::exists(path));
}

TEST_F(FileTest, HandlerHoldsOneStreamAndOneDescriptor) {
  const auto open_before = CountOpenFiles();
  auto handler = std::make_unique<util::FileHandler>();
  const auto open = [&](const char* path, const char* mode) {
    mode == nullptr ? static_cast<void>(handler->Open(path, O_RDONLY))
                    : static_cast<void>(handler->Open(path, mode));
    return handler->GetError() + " " + std::to_string(CountOpenFiles() - open_before);
  };
  ExpectPairs({{open("/", nullptr), " 1"},
               {open("/", "r"), " 2"},
               {open("/", nullptr), " 2"},
               {open("", nullptr), "invalid input paramter 1"},
               {open("", "r"), "invalid input paramters 0"},
               {open("none", "r"), "No such file or directory 0"},
               {open("/", nullptr), " 1"}});
  fputs("x", handler->Open("/dev/full", "w"));
  EXPECT_EQ(handler->CloseHandle(), ENOSPC);
  EXPECT_EQ(open("/", "r"), " 2");
  handler.reset();
  EXPECT_EQ(CountOpenFiles(), open_before);
}

}  // namespace
