#include "path.h"

#include "test_support.h"

namespace {

using util::Path;
using PathTest = FolderTest;

TEST_F(PathTest, PartsAreCutAtTheLastSlashAndTheLastDot) {
  const struct {
    const char* path;
    const char* parent;
    const char* last_name;
    const char* file_name;
    const char* extension;
  } kPaths[] = {
      {"", "", "", "", ""},
      {"a.txt", "", "a.txt", "a", "txt"},
      {"dir/a.tar.gz", "dir", "a.tar.gz", "a.tar", "gz"},
      {"/usr/lib/a.so", "/usr/lib", "a.so", "a", "so"},
      {"/a", "", "a", "a", ""},
      {"/", "", "", "", ""},
      {"a/b/", "a", "", "", ""},
      {"a/b//", "a/b", "", "", ""},
      {"a//b", "a/", "b", "b", ""},
      {"./a", ".", "a", "a", ""},
      {"dir.d/a", "dir.d", "a", "a", ""},
      {".hidden", "", ".hidden", "", "hidden"},
      {"a.", "", "a.", "a", ""},
  };
  for (const auto& row : kPaths) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(Path::GetParentPath(row.path), row.parent);
    EXPECT_EQ(Path::GetLastName(row.path), row.last_name);
    EXPECT_EQ(Path::GetFileName(row.path), row.file_name);
    EXPECT_EQ(Path::GetExtension(row.path), row.extension);
  }
}

TEST_F(PathTest, QuestionsFollowLinksAndLeaveTheLastErrorAlone) {
  fs::create_symlink(folder_, At("to-folder"));
  fs::create_symlink(Make("file", ""), At("to-file"));
  fs::create_symlink("gone", At("dangling"));
  const struct {
    std::string path;
    bool exists;
    bool is_directory;
    bool is_normal_file;
  } kPaths[] = {
      {folder_, true, true, false},
      {At("to-folder"), true, true, false},
      {At("file"), true, false, true},
      {At("to-file"), true, false, true},
      {At("dangling"), false, false, false},
      {"/dev/null", true, false, false},
      {"", false, false, false},
  };
  util::SetLastError("kept");
  for (const auto& row : kPaths) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(Path::IsPathExists(row.path), row.exists);
    EXPECT_EQ(Path::IsDirectory(row.path), row.is_directory);
    EXPECT_EQ(Path::IsNormalFile(row.path), row.is_normal_file);
  }
  EXPECT_EQ(util::GetLastError(), "kept");
}

TEST_F(PathTest, AbsolutePathResolvesLinksAndTellsWhyItFails) {
  fs::create_symlink(Make("file", ""), At("link"));
  EXPECT_EQ(Path::GetAbsolutePath(At("./link")), fs::canonical(At("file")));
  EXPECT_EQ(Path::GetAbsolutePath(""), "");
  EXPECT_EQ(util::GetLastError(), "the path is empty");
  EXPECT_EQ(Path::GetAbsolutePath("none"), "");
  EXPECT_EQ(util::GetLastError(), "realpath: No such file or directory");
}

TEST_F(PathTest, ProcessAndCurrentPathAreTheSystems) {
  EXPECT_EQ(Path::GetProcessPath(), fs::canonical("/proc/self/exe"));
  InFork([this] {
    fs::current_path(folder_);
    EXPECT_EQ(Path::GetCurrentPath(), fs::canonical(folder_));
    fs::remove_all(folder_);
    EXPECT_EQ(Path::GetCurrentPath(), "");
    EXPECT_EQ(util::GetLastError(), "getcwd: No such file or directory");
  });
}

}  // namespace
