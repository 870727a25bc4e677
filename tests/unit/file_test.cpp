#include "file.h"

#include "faults.h"
#include "test_support.h"

namespace {

using util::File;
using util::FileHandler;
using util::GetLastError;
using FileTest = FolderTest;

const std::string kGone = "No such file or directory";
const std::string kFull = "write file: No space left on device";

struct FailingOperation {
  std::string name;
  std::function<bool()> operation;
  std::string last_error;
};

void ExpectFailures(const std::vector<FailingOperation>& rows) {
  const auto open_files = CountOpenFiles();
  for (const FailingOperation& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(row.operation());
    EXPECT_EQ(GetLastError(), row.last_error);
  }
  EXPECT_EQ(CountOpenFiles(), open_files);
}

TEST_F(FileTest, FailureToReadHasAReasonAndChangesNothing) {
  const std::string folder = At("folder");
  fs::create_directory(folder);
  uint8_t* bin = nullptr;
  std::string text = "before";
  const auto reads_bytes = [&bin](const std::string& file) {
    return File(file).ReadBinary(bin) >= 0;
  };
  ExpectFailures({
      {"text, missing", [&] { return File(At("none")).ReadText(text); }, "open file: " + kGone},
      {"text, no path", [&] { return File("").ReadText(text); },
       "open file: invalid input paramters"},
      {"text, folder", [&] { return File(folder).ReadText(text); }, "read file: Is a directory"},
      {"bytes, missing", [&] { return reads_bytes(At("none")); }, "stat64: " + kGone},
      {"bytes, no path", [&] { return reads_bytes(""); }, "the file string is empty"},
      {"bytes, folder", [&] { return reads_bytes(folder); }, "read file: Is a directory"},
  });
  const Fault fault("fopen", EACCES);
  ExpectFailures({{"bytes, locked", [&] { return reads_bytes(Make("locked", "")); },
                   "open file: Permission denied"}});
  EXPECT_EQ(bin, nullptr);
  EXPECT_EQ(text, "before");
}

TEST_F(FileTest, FailureToWriteOrCopyOrDeleteHasAReason) {
  const std::string folder = At("folder");
  fs::create_directory(folder);
  const std::string source = Make("folder/source", "abc");
  const std::string kept = Make("kept", "kept");
  const std::string large(99999, 'x');
  const uint8_t byte = 7;
  File full("/dev/full");
  File fresh(At("new"));
  ExpectFailures({
      {"append to a full disk", [&] { return full.WriteText("x", true); }, kFull},
      {"large text to a full disk", [&] { return full.WriteText(large, false); }, kFull},
      {"no bytes", [&] { return fresh.WriteBinary(&byte, 0, false); }, "invalid binary size"},
      {"null bytes", [&] { return fresh.WriteBinary(nullptr, 1, false); },
       "invalid binary pointer"},
      {"copy of a missing file", [&] { return File::CopyFile(kept, At("none")); },
       "open file '" + At("none") + "': " + kGone},
      {"copy to a folder", [&] { return File::CopyFile(folder, source); },
       "open file '" + folder + "': Is a directory"},
      {"copy to a full disk", [&] { return File::CopyFile("/dev/full", source); }, kFull},
      {"copy of a folder", [&] { return File::CopyFile(kept, folder); },
       "read file: Is a directory"},
      {"delete without a path", [] { return File::DeleteFile(""); }, "invalid paramter"},
      {"delete a full folder", [&] { return File::DeleteFile(folder); },
       "remove: Directory not empty"},
  });
  const Fault fault("fclose", EDQUOT);
  const std::string quota = "close file: Disk quota exceeded";
  ExpectFailures({
      {"text, closing fails", [&] { return File(At("closed")).WriteText("x", false); }, quota},
      {"copy, closing fails", [&] { return File::CopyFile(At("closed"), source); }, quota},
  });
  EXPECT_EQ(ReadAll(kept), "kept");
  EXPECT_FALSE(fs::exists(At("new")));
}

TEST_F(FileTest, TextIsWrittenWholeAndReadUpToAZeroByteInEachChunk) {
  const std::string chunk(4095, 'y');
  std::string written = std::string("head").append(1, '\0').append(4090, 'x') + chunk;
  std::string expected = "before head" + chunk;
  for (int i = 0; i < 100; ++i) {  // more than is read at once
    written += chunk;
    expected += chunk;
  }
  const std::string end("tail\0lost", 9);
  File file(Make("file", "old"));
  EXPECT_TRUE(file.WriteText(written, false));
  EXPECT_TRUE(file.WriteText(end, true));
  EXPECT_EQ(FirstDifference(ReadAll(At("file")), written + end), kNone);
  std::string text = "before ";
  EXPECT_TRUE(file.ReadText(text));
  EXPECT_EQ(FirstDifference(text, expected + "tail"), kNone);
  EXPECT_TRUE(file.WriteText("", false));
  EXPECT_EQ(File::GetFileSize(At("file")), 0);
}

TEST_F(FileTest, TextReadBeforeAnErrorIsKept) {
  File file(Make("file", "the first bytes"));
  std::string text;
  const Fault fault("fread", EIO);
  EXPECT_FALSE(file.ReadText(text));
  EXPECT_EQ(GetLastError(), "read file: Input/output error");
  EXPECT_EQ(text, "the first bytes");
}

TEST_F(FileTest, BytesAreReadOnceAndUpToTheSizeAtTheStart) {
  const std::string content = "a" + std::string(300000, '\0') + "z";
  File file(Make("file", content));
  uint8_t* bin = nullptr;
  for (const std::string when : {"first read", "file changed since"}) {
    SCOPED_TRACE(when);
    ASSERT_EQ(file.ReadBinary(bin), 300002);
    EXPECT_EQ(FirstDifference({reinterpret_cast<char*>(bin), 300002}, content), kNone);
    Make("file", "changed");
  }
  File growing("/proc/self/maps");  // its size is 0, but there are bytes to read
  bin = nullptr;
  EXPECT_EQ(growing.ReadBinary(bin), 0);
  EXPECT_NE(bin, nullptr);
  File ends_early("/sys/kernel/mm/transparent_hugepage/enabled");  // its size is a page
  EXPECT_GT(File::GetFileSize("/sys/kernel/mm/transparent_hugepage/enabled"), 100);
  EXPECT_LT(ends_early.ReadBinary(bin), 100);
}

TEST_F(FileTest, BytesReplaceOrFollowTheContent) {
  const uint8_t bytes[] = {'a', '\0', 'z'};
  File file(Make("file", "longer than that"));
  EXPECT_TRUE(file.WriteBinary(bytes, 3, false));
  EXPECT_TRUE(file.WriteBinary(bytes, 1, true));
  EXPECT_EQ(ReadAll(At("file")), std::string("a\0za", 4));
}

TEST_F(FileTest, CopyGoesFromTheSecondToTheFirst) {
  const std::string content = std::string(900000, '\0') + "end";
  EXPECT_TRUE(File::CopyFile(Make("copy", content + "longer"), Make("source", content)));
  EXPECT_EQ(FirstDifference(ReadAll(At("copy")), content), kNone);
  EXPECT_EQ(FirstDifference(ReadAll(At("source")), content), kNone);
}

TEST_F(FileTest, FilesAreReadAndCopiedWhereMemoryIsShort) {
  const std::string content(300000, 'x');
  Make("source", content);
  const Fault fault("new", ENOMEM);
  std::string text;
  EXPECT_TRUE(File(At("source")).ReadText(text));
  EXPECT_EQ(FirstDifference(text, content), kNone);
  EXPECT_TRUE(File::CopyFile(At("copy"), At("source")));
  EXPECT_EQ(FirstDifference(ReadAll(At("copy")), content), kNone);
}

TEST_F(FileTest, HolesOfAFileTakeNoMemory) {
  fs::resize_file(Make("sparse", "head"), 256 << 20);
  std::string text;
  EXPECT_TRUE(File(At("sparse")).ReadText(text));
  EXPECT_EQ(text, "head");
  EXPECT_LT(text.capacity(), 1 << 20);
}

TEST_F(FileTest, InterruptedReadsAreRepeated) {
  InFork([this] {
    mkfifo(At("fifo").c_str(), 0600);
    const std::string content(1000000, 'x');
    for (const bool is_copy : {false, true}) {
      std::thread writer([&] {
        sigset_t alarm;
        sigfillset(&alarm);
        pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
        util::FileWriter fifo;
        EXPECT_TRUE(fifo.Open(At("fifo"), false));
        for (size_t i = 0; i < content.size(); i += 20000) {
          util::MicroSleep(1000);
          fifo.Write(&content[i], 20000);
        }
      });
      struct sigaction action = {};
      action.sa_handler = [](int) {};
      sigaction(SIGALRM, &action, nullptr);
      const struct itimerval often = {{0, 300}, {0, 300}};
      setitimer(ITIMER_REAL, &often, nullptr);
      std::string text;
      EXPECT_TRUE(is_copy ? File::CopyFile(At("copy"), At("fifo"))
                          : File(At("fifo")).ReadText(text))
          << GetLastError();
      writer.join();
      EXPECT_EQ(FirstDifference(is_copy ? ReadAll(At("copy")) : text, content), kNone);
    }
  });
}

TEST_F(FileTest, FileIsAppendedToItselfOnce) {
  const std::string content(100000, 'x');
  Make("file", "-" + content);
  InFork([this] {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {1000000, 1000000};
    setrlimit(RLIMIT_FSIZE, &limit);
    util::FileReader reader;
    util::FileWriter writer;
    EXPECT_TRUE(reader.Open(At("file")));
    EXPECT_TRUE(writer.Open(At("file"), true));
    char first = 0;
    size_t count = 0;
    EXPECT_TRUE(reader.Read(&first, 1, count));
    EXPECT_TRUE(writer.WriteRest(reader) && writer.Close()) << GetLastError();
  });
  EXPECT_EQ(FirstDifference(ReadAll(At("file")), "-" + content + content), kNone);
}

class AtomicFileTest : public FolderTest {
 protected:
  struct stat Status(const std::string& name) const {
    struct stat status = {};
    stat(At(name).c_str(), &status);
    return status;
  }

  bool Begin(const std::string& name) {
    return writer_->Open(At(name), ".draft-") && writer_->Write("new", 3);
  }

  Strings Names() const {
    Strings names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  std::unique_ptr<util::AtomicFileWriter> writer_ = std::make_unique<util::AtomicFileWriter>();
};

TEST_F(AtomicFileTest, FileAppearsWhenItIsCommitted) {
  const std::string longest(255, 'x');
  EXPECT_TRUE(Begin(longest));
  EXPECT_THAT(Names(), testing::ElementsAre(testing::MatchesRegex(R"(\.draft-[0-9a-f]{16})")));
  EXPECT_TRUE(writer_->Commit());
  EXPECT_EQ(Names(), Strings{longest});
  EXPECT_EQ(ReadAll(At(longest)), "new");
}

TEST_F(AtomicFileTest, OlderFileStaysUnlessTheNewOneIsCommitted) {
  Make("file", "older");
  EXPECT_TRUE(Begin("file"));
  EXPECT_TRUE(Begin("file"));
  EXPECT_EQ(Names().size(), 2) << "the first draft is removed";
  writer_.reset();
  EXPECT_EQ(Names(), Strings{"file"});
  EXPECT_EQ(ReadAll(At("file")), "older");
}

TEST_F(AtomicFileTest, PermissionsAndLinksStay) {
  fs::create_symlink(Make("file", "older"), At("link"));
  fs::create_hard_link(At("file"), At("hard link"));
  [[maybe_unused]] const bool may_give_away = chown(At("file").c_str(), 65534, 65534) == 0;
  chmod(At("file").c_str(), 04642);
  const struct stat older = Status("file");
  EXPECT_TRUE(Begin("link") && writer_->Commit());
  EXPECT_TRUE(fs::is_symlink(At("link")));
  EXPECT_EQ(ReadAll(At("file")), "new");
  EXPECT_EQ(ReadAll(At("hard link")), "older");
  EXPECT_EQ(Status("file").st_uid, older.st_uid);
  EXPECT_EQ(Status("file").st_gid, older.st_gid);
  EXPECT_EQ(fs::status(At("file")).permissions(), static_cast<fs::perms>(0642));
  const mode_t mask = umask(026);
  EXPECT_TRUE(Begin("fresh") && writer_->Commit());
  umask(mask);
  EXPECT_EQ(fs::status(At("fresh")).permissions(), static_cast<fs::perms>(0640));
}

// An access control list as the system stores it, in entries of tag, permissions and id.
std::string AccessList(uint32_t user_count) {
  std::string list("\2\0\0\0\1\0\6\0\xff\xff\xff\xff", 12);  // version; owner
  for (uint32_t user = 1; user <= user_count; ++user) {
    list.append("\2\0\6\0", 4).append(reinterpret_cast<const char*>(&user), sizeof(user));
  }
  return list
      .append("\4\0\0\0\xff\xff\xff\xff", 8)                              // group
      .append("\20\0\6\0\xff\xff\xff\xff\40\0\0\0\xff\xff\xff\xff", 16);  // mask, others
}

std::string ReadAccessList(const std::string& file) {
  std::string list(4096, '\0');
  const ssize_t size = getxattr(file.c_str(), "system.posix_acl_access", list.data(), list.size());
  return list.substr(0, static_cast<size_t>(std::max(size, ssize_t{0})));
}

// Not every file system has such lists. All are empty then.
TEST_F(AtomicFileTest, AccessListStaysAsItIs) {
  const std::string list = AccessList(300);
  setxattr(Make("shared", "").c_str(), "system.posix_acl_access", list.data(), list.size(), 0);
  chmod(Make("private", "").c_str(), 0640);
  const std::string inherited = AccessList(1);
  setxattr(folder_.c_str(), "system.posix_acl_default", inherited.data(), inherited.size(), 0);
  const std::string before = ReadAccessList(At("shared"));
  EXPECT_TRUE(Begin("shared") && writer_->Commit());
  EXPECT_EQ(FirstDifference(ReadAccessList(At("shared")), before), kNone);
  EXPECT_TRUE(Begin("private") && writer_->Commit());
  EXPECT_EQ(ReadAccessList(At("private")), "");
  EXPECT_EQ(fs::status(At("private")).permissions(), static_cast<fs::perms>(0640));
}

TEST_F(AtomicFileTest, AnotherGroupMayDoNoMoreThanEverybody) {
  chmod(Make("file", "").c_str(), 0676);
  chmod(folder_.c_str(), 0777);
  InFork([this] {
    fs::current_path(folder_);  // another user may not find it by its whole path
    const bool is_another = setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0;
    EXPECT_TRUE(writer_->Open("file", ".draft-") && writer_->Commit());
    EXPECT_EQ(fs::status("file").permissions(), static_cast<fs::perms>(is_another ? 0666 : 0676));
  });
}

TEST_F(AtomicFileTest, LinksAreFollowedIfTheSystemDoes) {
  fs::create_symlink(Make("file", ""), At("link 1"));
  for (int i = 2; i <= 40; ++i) {
    fs::create_symlink("link " + std::to_string(i - 1), At("link " + std::to_string(i)));
  }
  const auto open_files = CountOpenFiles();
  EXPECT_TRUE(Begin("link 40") && writer_->Commit());
  EXPECT_EQ(CountOpenFiles(), open_files);
  EXPECT_EQ(ReadAll(At("file")), "new");
  fs::create_symlink(".", At("one more"));
  EXPECT_FALSE(Begin("one more/link 40"));
  EXPECT_EQ(GetLastError(), "open file: Too many levels of symbolic links");
  std::string directory = ".";
  while (directory.size() < 100) directory += "/.";
  fs::create_symlink(directory + "/file", At("link"));
  while (directory.size() < 4000) directory += "/.";
  Make("file", "older");
  EXPECT_TRUE(Begin(directory + "/link"));
  EXPECT_EQ(ReadAll(At("file")), "older");
  EXPECT_TRUE(writer_->Commit());
  EXPECT_EQ(ReadAll(At("file")), "new");
}

TEST_F(AtomicFileTest, ReaderKeepsTheOlderFileAndItsLeaseDoesNotPreventReplacing) {
  InFork([this] {
    signal(SIGIO, SIG_IGN);  // asks the holder of the lease to give it up
    const int reader = open(Make("file", "older").c_str(), O_RDONLY);
    fcntl(reader, F_SETLEASE, F_RDLCK);
    EXPECT_TRUE(Begin("file") && writer_->Commit());
    EXPECT_EQ(ReadAll(At("file")), "new");
    char text[] = "?????";
    EXPECT_EQ(read(reader, text, 5), 5);
    EXPECT_STREQ(text, "older");
  });
}

TEST_F(AtomicFileTest, FailedWriteIsNeverCommitted) {
  InFork([this] {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t usual_limit = std::exchange(limit.rlim_cur, 5000);
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string text(9999, 'x');
    EXPECT_TRUE(Begin("file"));
    EXPECT_FALSE(writer_->Write(text.data(), text.size()));
    limit.rlim_cur = usual_limit;
    setrlimit(RLIMIT_FSIZE, &limit);
    for (int attempt = 1; attempt <= 2; ++attempt) {
      EXPECT_FALSE(writer_->Commit());
      EXPECT_EQ(GetLastError(), "write file: File too large");
    }
    EXPECT_FALSE(fs::exists(At("file")));
    EXPECT_TRUE(Begin("file") && writer_->Commit());
  });
}

TEST_F(AtomicFileTest, NothingIsCommittedAfterAFailedOpen) {
  EXPECT_TRUE(Begin("file"));
  {
    const Fault fault("getentropy", ENOSYS);
    EXPECT_FALSE(Begin("other"));
  }
  EXPECT_FALSE(writer_->Commit());
  EXPECT_EQ(GetLastError(), "no file is open");
  EXPECT_EQ(Names(), Strings());
}

TEST_F(AtomicFileTest, WhatCannotBeReplacedIsWrittenInPlace) {
  Make("file", "a longer older file");
  const ino_t inode = Status("file").st_ino;
  fs::create_symlink(At("target"), At("dangling"));
  EXPECT_TRUE(Begin("dangling") && writer_->Commit());
  EXPECT_EQ(ReadAll(At("target")), "new");
  for (const int reason : {EACCES, ENOENT}) {  // a directory, a file system without new names
    const Fault no_new_names("openat", reason);
    EXPECT_TRUE(Begin("file") && writer_->Commit());
    EXPECT_EQ(ReadAll(At("file")), "new");
    Make("file", "a longer older file");
  }
  {
    const Fault mount_point("renameat", EBUSY);
    EXPECT_TRUE(Begin("file") && writer_->Commit());
  }
  EXPECT_EQ(ReadAll(At("file")), "new");
  EXPECT_EQ(Status("file").st_ino, inode);
  EXPECT_THAT(Names(), testing::UnorderedElementsAre("dangling", "file", "target"));
}

TEST_F(AtomicFileTest, FailureHasAReasonAndLeavesTheOlderFile) {
  Make("file", "older");
  fs::create_symlink("file/", At("link"));
  const auto replaces = [this](const std::string& name) {
    const bool is_replaced = Begin(name) && writer_->Commit();
    writer_ = std::make_unique<util::AtomicFileWriter>();
    return is_replaced;
  };
  ExpectFailures({
      {"no directory", [&] { return replaces("none/file"); }, "open file: " + kGone},
      {"directory", [&] { return replaces("."); }, "open file: Is a directory"},
      {"file as directory", [&] { return replaces("file/"); }, "open file: Is a directory"},
      {"new directory", [&] { return replaces("none/"); }, "open file: Is a directory"},
      {"link to a file as directory", [&] { return replaces("link"); },
       "open file: Is a directory"},
      {"long name", [&] { return replaces(std::string(256, 'x')); },
       "open file: File name too long"},
      {"long path", [&] { return replaces(std::string(4096, '/') + "file"); },
       "open file: File name too long"},
  });
  struct Row {
    const char* call;
    int error;
    std::string last_error;
  };
  const Row rows[] = {
      {"getentropy", ENOSYS, "getentropy: Function not implemented"},
      {"openat", EMFILE, "open file: Too many open files"},
      {"fclose", EDQUOT, "close file: Disk quota exceeded"},
      {"renameat", EIO, "rename file: Input/output error"},
  };
  for (const Row& row : rows) {
    const Fault fault(row.call, row.error);
    ExpectFailures({{row.call, [&] { return replaces("file"); }, row.last_error}});
    EXPECT_EQ(ReadAll(At("file")), "older");
    EXPECT_THAT(Names(), testing::UnorderedElementsAre("file", "link"));
  }
}

TEST_F(FileTest, DeletingLeavesNothingAtThePath) {
  fs::create_directory(At("folder"));
  for (const std::string& path : {Make("file", ""), At("folder"), At("missing")}) {
    SCOPED_TRACE(path);
    EXPECT_TRUE(File::DeleteFile(path));
    EXPECT_FALSE(fs::exists(path));
  }
}

TEST_F(FileTest, HandlerHoldsOneStreamAndOneDescriptor) {
  const auto before = CountOpenFiles();
  auto handler = std::make_unique<FileHandler>();
  EXPECT_GT(handler->Open("/", O_RDONLY), STDERR_FILENO);
  EXPECT_NE(handler->Open("/", "r"), nullptr);
  EXPECT_EQ(CountOpenFiles(), before + 2);
  EXPECT_GT(handler->Open("/", O_RDONLY), STDERR_FILENO);
  EXPECT_EQ(CountOpenFiles(), before + 2) << "the descriptor is replaced";
  handler.reset();
  EXPECT_EQ(CountOpenFiles(), before);
}

TEST_F(FileTest, HandlerTellsWhyItCouldNotOpen) {
  FileHandler handler;
  EXPECT_EQ(handler.Open("", O_RDONLY), -1);
  EXPECT_EQ(handler.GetError(), "invalid input paramter");
  EXPECT_EQ(handler.Open("", "r"), nullptr);
  EXPECT_EQ(handler.GetError(), "invalid input paramters");
  EXPECT_EQ(handler.Open("/", nullptr), nullptr);
  EXPECT_EQ(handler.GetError(), "invalid input paramters");
  EXPECT_EQ(handler.Open(At("none"), O_RDONLY), -1);
  EXPECT_EQ(handler.GetError(), kGone);
  EXPECT_EQ(handler.Open(At("none"), "r"), nullptr);
  EXPECT_EQ(handler.GetError(), kGone);
  EXPECT_NE(handler.Open("/", "r"), nullptr);
  EXPECT_EQ(handler.GetError(), "");
  fputs("x", handler.Open("/dev/full", "w"));
  EXPECT_EQ(handler.CloseHandle(), ENOSPC);
}

}  // namespace
