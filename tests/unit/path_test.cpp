#include "path.h"

#include "test_support.h"

namespace {

using util::Path;
using PathTest = FolderTest;

// A result and the reason for it being empty.
std::string Told(const std::string& result) { return result + util::GetLastError(); }

TEST_F(PathTest, CuttingGoesByTheLastSlashAndTheLastDot) {
  // The path, then its parent, last name, file name and extension.
  for (const std::string row :
       {": , , , ", "a.txt: , a.txt, a, txt", "dir/a.tar.gz: dir, a.tar.gz, a.tar, gz",
        "/usr/lib/a.so: /usr/lib, a.so, a, so", "/a: , a, a, ", "/: , , , ", "a/b/: a, , , ",
        "a/b//: a/b, , , ", "a//b: a/, b, b, ", "./a: ., a, a, ", "dir.d/a: dir.d, a, a, ",
        ".hidden: , .hidden, , hidden", "a.: , a., a, "}) {
    const std::string path = row.substr(0, row.find(':'));
    EXPECT_EQ(path + ": " + Path::GetParentPath(path) + ", " + Path::GetLastName(path) + ", " +
                  Path::GetFileName(path) + ", " + Path::GetExtension(path),
              row);
  }
}

TEST_F(PathTest, QuestionsFollowLinksAndLeaveTheLastErrorAlone) {
  fs::create_symlink(folder_, At("to-folder"));
  fs::create_symlink(Make("file", ""), At("to-file"));
  fs::create_symlink("gone", At("dangling"));
  util::SetLastError("kept");
  std::string answers;
  for (const std::string& path : {folder_, At("to-folder"), At("file"), At("to-file"),
                                  At("dangling"), std::string("/dev/null"), std::string()})
    answers += util::StrFormat(" %d%d%d", Path::IsPathExists(path), Path::IsDirectory(path),
                               Path::IsNormalFile(path));
  EXPECT_EQ(answers + util::GetLastError(), " 110 110 101 101 000 100 000kept");
}

TEST_F(PathTest, SystemIsAskedForAbsolutePaths) {
  fs::create_symlink(Make("file", ""), At("link"));
  ExpectPairs({{Path::GetAbsolutePath(At("./link")), fs::canonical(At("file"))},
               {Path::GetProcessPath(), fs::canonical("/proc/self/exe")},
               {Told(Path::GetAbsolutePath("")), "the path is empty"},
               {Told(Path::GetAbsolutePath("none")), "realpath: No such file or directory"}});
  EXPECT_TRUE(HoldsInFork([this] {
    fs::current_path(folder_);
    EXPECT_EQ(Path::GetCurrentPath(), fs::canonical(folder_));
    fs::remove_all(folder_);
    EXPECT_EQ(Told(Path::GetCurrentPath()), "getcwd: No such file or directory");
  }));
}

}  // namespace
