#include "file.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "internal.h"
#include "misc.h"
#include "path.h"

namespace util {
namespace {

constexpr size_t kHugePageSize = 2 * 1024 * 1024;
constexpr size_t kKernelCopySize = 1 << 30;
constexpr size_t kTextChunkSize = 4095;
constexpr off_t kStatBlockSize = 512;
constexpr int kMaxLinks = 40;  // as in the kernel
constexpr int kDescriptorsWithoutProc = 1024;
constexpr mode_t kPermissionBits = 0777;
constexpr mode_t kNewFileMode = 0666;
constexpr mode_t kPrivateFileMode = 0600;
constexpr auto kUnchangedOwner = static_cast<uid_t>(-1);
constexpr auto kUnchangedGroup = static_cast<gid_t>(-1);
constexpr char kOpenFailed[] = "open file: %s";
constexpr char kReadFailed[] = "read file: %s";
constexpr char kOpenNamedFailed[] = "open file '%s': %s";

struct Free {
  void operator()(uint8_t* buffer) const { free(buffer); }
};

// Makes a buffer that is fast to fill; null when there is no memory.
std::unique_ptr<uint8_t[], Free> MakeBuffer(size_t size) {
  const size_t alignment = size < 2 * kHugePageSize ? kReadAlignment : kHugePageSize;
  const size_t rounded_size = (std::max(size, size_t{1}) + alignment - 1) / alignment * alignment;
  std::unique_ptr<uint8_t[], Free> buffer(
      static_cast<uint8_t*>(aligned_alloc(alignment, rounded_size)));
  if (buffer != nullptr) {
    PreferHugePages(buffer.get(), size);
  }
  return buffer;
}

bool ReportOpen(const FILE* fp, const FileHandler& handler) {
  if (fp == nullptr) {
    SetLastError(kOpenFailed, handler.GetError().c_str());
  }
  return fp != nullptr;
}

bool CheckOpen(const FILE* fp) {
  if (fp == nullptr) {
    SetLastError("no file is open");
    return false;
  }
  return true;
}

// Makes room for the text of a file. Best effort: not for its holes, which add nothing to a text,
// and not if memory is short, as zero bytes add nothing either.
void ReserveForText(const std::string& file, std::string& text) {
  struct stat status;
  if (stat(file.c_str(), &status) != 0) {
    return;
  }
  const auto size =
      static_cast<size_t>(std::min(status.st_size, status.st_blocks * kStatBlockSize));
  const size_t needed = text.size() + size;
  if (needed <= text.capacity()) {
    return;
  }
  // As much as `reserve` may allocate. Not a `new` expression, which a compiler may leave out.
  void* room = ::operator new(std::max(needed, 2 * text.capacity()) + 1, std::nothrow);
  ::operator delete(room);
  if (room != nullptr) {
    text.reserve(needed);
    PreferHugePages(text.data() + text.size(), size);
  }
}

// Whether the file is open for writing on a descriptor that others may use too, as it has no
// close-on-exec.
bool IsHeldOpen(const struct stat& file) {
  const auto is_on_file = [&file](int fd) {
    struct stat status;
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0 && (fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDONLY &&
           fstat(fd, &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino;
  };
  bool is_held = false;
  const std::unique_ptr<DIR, int (*)(DIR*)> list(opendir("/proc/self/fd"), &closedir);
  if (list == nullptr) {
    for (int fd = 0; fd < kDescriptorsWithoutProc && !is_held; ++fd) {
      is_held = is_on_file(fd);
    }
    return is_held;
  }
  for (const struct dirent* entry; !is_held && (entry = readdir(list.get())) != nullptr;) {
    is_held = is_on_file(atoi(entry->d_name));
  }
  return is_held;
}

// Replaces `directory` by the parent directory of `path`, which is relative to it. `path` becomes
// its last component.
bool EnterDirectory(int& directory, std::string& path) {
  const size_t name_begin = path.rfind('/') + 1;  // without a "/", `npos` plus 1 is 0
  const std::string parent = name_begin == 0 ? "." : path.substr(0, name_begin);
  const int former = directory;
  const int entered =
      openat(former < 0 ? AT_FDCWD : former, parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (entered < 0) {
    return false;
  }
  directory = entered;  // before the former number can become that of another file
  if (former >= 0) {
    close(former);
  }
  path.erase(0, name_begin);
  return true;
}

// Links of /proc, such as /proc/self/fd/1, may lead to files that their text does not name.
bool IsInProc(int directory) {
  struct statfs file_system = {};
  fstatfs(directory, &file_system);
  return file_system.f_type == PROC_SUPER_MAGIC;
}

// Follows the links that `path` ends in, up to something that is not a link, or is a link in /proc.
// `path` becomes the last name, relative to `directory`; it is empty for a link to nothing, and if
// it can't name a file. `status` receives the status of what is there. Returns false with `errno`
// on failure.
bool FollowLinks(int& directory, std::string& path, struct stat& status) {
  for (int count = 0; count <= kMaxLinks; ++count) {
    if (path.empty() || path.back() == '/' || path.size() >= PATH_MAX) {
      path.clear();
      return true;
    }
    if (!EnterDirectory(directory, path)) {
      return false;
    }
    if (fstatat(directory, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (count > 0) {
        path.clear();
      }
      return errno == ENOENT;
    }
    if (!S_ISLNK(status.st_mode) || IsInProc(directory)) {
      return true;
    }
    char text[PATH_MAX];
    const ssize_t size = readlinkat(directory, path.c_str(), text, sizeof(text));
    if (size > 0) {
      path.assign(text, static_cast<size_t>(size));
    } else if (errno != EINVAL) {  // it has just been replaced by something else
      return false;
    }
  }
  path.clear();
  return true;
}

// Finds what to rename a draft to, so that it replaces what `file` names: `name` in `directory`.
// The name is empty if `file` has to be written in place, or if opening it will tell what is wrong.
// `older` receives the status of the file that is there, and is unchanged if there is none. Returns
// false with `errno` if `file` can't be written.
bool FindTarget(const std::string& file, int& directory, std::string& name, struct stat& older) {
  name = file;
  if (!FollowLinks(directory, name, older)) {
    return false;
  }
  if (name.empty() || older.st_mode == 0) {
    return true;
  }
  if (!S_ISREG(older.st_mode)) {
    name.clear();
    return true;
  }
  // The kernel has more rules than the permission bits, also for links. The file may have been
  // removed just now, or its holder been told to give up a lease.
  const int fd = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0 && errno != ENOENT && errno != EWOULDBLOCK) {
    return false;
  }
  close(fd);
  if (IsHeldOpen(older)) {
    name.clear();
  }
  return true;
}

// Gives a draft the permissions of the older file, and its group and owner if the system allows it.
// The owner comes last, as only the owner may set the rest.
void KeepPermissions(int draft, const std::string& file, const struct stat& older) {
  const bool has_group = fchown(draft, kUnchangedOwner, older.st_gid) == 0;
  constexpr char name[] = "system.posix_acl_access";
  const ssize_t size = getxattr(file.c_str(), name, nullptr, 0);
  const bool has_list = size > 0;
  std::string list(has_list ? static_cast<size_t>(size) : 0, '\0');
  if (!has_group || !has_list || getxattr(file.c_str(), name, list.data(), list.size()) != size ||
      fsetxattr(draft, name, list.data(), list.size(), 0) != 0) {
    fremovexattr(draft, name);  // one that the directory gives to new files
    mode_t mode = older.st_mode & kPermissionBits;
    if (!has_group || has_list) {
      // Another group, or a mask in the place of its bits: it may do no more than all others.
      const mode_t group_bits = mode & S_IRWXG & (mode & S_IRWXO) << 3;
      mode = (mode & (S_IRWXU | S_IRWXO)) | group_bits;
    }
    fchmod(draft, mode);
  }
  [[maybe_unused]] const bool has_owner = fchown(draft, older.st_uid, kUnchangedGroup) == 0;
}

// How many bytes to copy from one descriptor to another at most. The end of a file that is copied
// to itself would move on as it is written.
size_t GetRestSize(int from, int to) {
  struct stat source;
  struct stat target;
  const off_t offset = lseek(from, 0, SEEK_CUR);
  const bool is_same = offset >= 0 && fstat(from, &source) == 0 && fstat(to, &target) == 0 &&
                       S_ISREG(source.st_mode) && source.st_dev == target.st_dev &&
                       source.st_ino == target.st_ino;
  return is_same ? static_cast<size_t>(std::max(source.st_size - offset, off_t{0})) : SIZE_MAX;
}

// Whether a file system, or the owner of a directory, does not let this process create or rename a
// file there.
bool IsRefused(int error) {
  constexpr int reasons[] = {EACCES, EPERM, EROFS, EBUSY, EXDEV, ENOSYS, EOPNOTSUPP};
  return std::find(std::begin(reasons), std::end(reasons), error) != std::end(reasons);
}

// The same for a draft. Some file systems have fixed files, or only short names.
bool IsDraftRefused(int error) {
  return IsRefused(error) || error == ENOENT || error == EINVAL || error == ENAMETOOLONG;
}

bool WriteWholeFile(const std::string& file, bool append, const void* data, size_t size) {
  FileWriter writer;
  return writer.Open(file, append) && writer.Write(data, size) && writer.Close();
}

}  // namespace

File::File(const std::string& file) : file_(file), binary_(nullptr), bin_size_(0) {}

File::~File() { Free()(binary_); }

bool File::ReadText(std::string& text) {
  FileReader reader;
  if (!reader.Open(file_)) {
    return false;
  }
  ReserveForText(file_, text);
  ReadBuffer buffer;
  // Whole chunks, so that each begins where it would if it were read by itself.
  const size_t size = buffer.GetSize() / kTextChunkSize * kTextChunkSize;
  bool is_read = false;
  size_t count = 0;
  do {
    is_read = reader.Read(buffer.Get(), size, count);
    AppendChunks(buffer.Get(), count, kTextChunkSize, text);
  } while (is_read && count > 0);
  return is_read;
}

bool File::WriteText(const std::string& text, bool append) {
  return WriteWholeFile(file_, append, text.data(), text.size());
}

int64_t File::ReadBinary(uint8_t*& bin) {
  if (binary_ == nullptr) {
    const int64_t size = GetFileSize(file_);
    if (size < 0) {
      return -1;
    }
    std::unique_ptr<uint8_t[], Free> buffer = MakeBuffer(static_cast<size_t>(size));
    if (buffer == nullptr) {
      SetLastError("malloc size: %" PRId64, size);
      return -1;
    }
    FileReader reader;
    size_t count = 0;
    if (!reader.Open(file_) || !reader.Read(buffer.get(), static_cast<size_t>(size), count)) {
      return -1;
    }
    binary_ = buffer.release();
    bin_size_ = static_cast<int64_t>(count);
  }
  bin = binary_;
  return bin_size_;
}

bool File::WriteBinary(const uint8_t* bin, int64_t size, bool append) {
  if (size < 1) {
    SetLastError("invalid binary size");
    return false;
  }
  if (bin == nullptr) {
    SetLastError("invalid binary pointer");
    return false;
  }
  return WriteWholeFile(file_, append, bin, static_cast<size_t>(size));
}

bool File::DeleteFile(const std::string& file) {
  if (file.empty()) {
    SetLastError("invalid paramter");
    return false;
  }
  if (!Path::IsPathExists(file)) {
    return true;
  }
  if (remove(file.c_str()) != 0) {
    SetLastError("remove: %s", strerror(errno));
    return false;
  }
  return true;
}

bool File::CopyFile(const std::string& dst, const std::string& src) {
  FileReader reader;
  if (!reader.Open(src)) {
    SetLastError(kOpenNamedFailed, src.c_str(), reader.GetError().c_str());
    return false;
  }
  if (Path::IsDirectory(src)) {  // which can be opened, but not read
    SetLastError(kReadFailed, strerror(EISDIR));
    return false;
  }
  FileWriter writer;
  if (!writer.Open(dst, false)) {
    SetLastError(kOpenNamedFailed, dst.c_str(), writer.GetError().c_str());
    return false;
  }
  return writer.WriteRest(reader) && writer.Close();
}

int64_t File::GetFileSize(const std::string& file) {
  if (file.empty()) {
    SetLastError("the file string is empty");
    return -1;
  }
  struct stat status;
  if (stat(file.c_str(), &status) != 0) {
    SetLastError("stat64: %s", strerror(errno));
    return -1;
  }
  return status.st_size;
}

FileHandler::FileHandler() : fp_(nullptr), fd_(-1) {}

FileHandler::~FileHandler() {
  DestroyHandle();
  DestroyDescriptor();
}

int FileHandler::Open(const std::string& file, int flag) {
  DestroyDescriptor();
  if (file.empty()) {
    error_msg = "invalid input paramter";
    return -1;
  }
  do {
    fd_ = open(file.c_str(), flag, 0);
  } while (fd_ < 0 && errno == EINTR);
  if (fd_ < 0) {
    error_msg = strerror(errno);
    return -1;
  }
  return fd_;
}

FILE* FileHandler::Open(const std::string& file, const char* mode) {
  DestroyHandle();
  if (file.empty() || mode == nullptr) {
    error_msg = "invalid input paramters";
    return nullptr;
  }
  do {
    fp_ = fopen(file.c_str(), mode);
  } while (fp_ == nullptr && errno == EINTR);
  if (fp_ == nullptr) {
    error_msg = strerror(errno);
  }
  return fp_;
}

FILE* FileHandler::Open(int fd, const char* mode) {
  int error = errno;
  DestroyHandle();
  if (fd >= 0) {
    fp_ = fdopen(fd, mode);
    error = errno;
  }
  if (fp_ == nullptr) {
    error_msg = strerror(error);
    if (fd >= 0) {
      close(fd);
    }
  }
  return fp_;
}

void FileHandler::DestroyHandle() { CloseHandle(); }

void FileHandler::DestroyDescriptor() {
  error_msg.clear();
  if (fd_ >= 0) {
    close(fd_);
    fd_ = -1;
  }
}

int FileHandler::CloseHandle() {
  error_msg.clear();
  if (fp_ == nullptr) {
    return 0;
  }
  const int error = fclose(fp_) == 0 ? 0 : errno;
  fp_ = nullptr;
  return error;
}

const std::string& FileHandler::GetError() const { return error_msg; }

bool FileReader::Open(const std::string& file) { return Use(handler_.Open(file, "rbe")); }

bool FileReader::Open(int fd) { return Use(handler_.Open(fd, "rb")); }

bool FileReader::Read(void* data, size_t size, size_t& count) {
  count = 0;
  if (!CheckOpen(fp_)) {
    return false;
  }
  while (true) {
    count += fread(static_cast<char*>(data) + count, 1, size - count, fp_);
    if (count == size || ferror(fp_) == 0) {
      return true;
    }
    if (errno != EINTR) {
      SetLastError(kReadFailed, strerror(errno));
      return false;
    }
    clearerr(fp_);
  }
}

int64_t FileReader::GetSize() const {
  struct stat status;
  if (!CheckOpen(fp_)) {
    return -1;
  }
  if (fstat(fileno(fp_), &status) != 0) {
    SetLastError("fstat64: %s", strerror(errno));
    return -1;
  }
  return status.st_size;
}

const std::string& FileReader::GetError() const { return handler_.GetError(); }

bool FileReader::Use(FILE* fp) {
  fp_ = fp;
  if (fp != nullptr) {
    setvbuf(fp, nullptr, _IONBF, 0);  // a block is as good as the stream's own buffer
  }
  return ReportOpen(fp, handler_);
}

bool FileWriter::Open(const std::string& file, bool append) {
  return Use(handler_.Open(file, append ? "abe" : "wbe"));
}

bool FileWriter::Open(int fd) { return Use(handler_.Open(fd, "wb")); }

bool FileWriter::Write(const void* data, size_t size) {
  if (!CheckOpen(fp_)) {
    return false;
  }
  return fwrite(data, 1, size, fp_) == size || Fail(errno);
}

bool FileWriter::WriteRest(FileReader& reader) {
  if (!Flush() || !CheckOpen(reader.fp_)) {
    return false;
  }
  const int from = fileno(reader.fp_);
  const int to = fileno(fp_);
  size_t rest = GetRestSize(from, to);
  for (ssize_t count = 1; count > 0 && rest > 0; rest -= static_cast<size_t>(count)) {
    count =
        std::max(copy_file_range(from, nullptr, to, nullptr, std::min(kKernelCopySize, rest), 0),
                 ssize_t{0});
  }
  // Where the kernel can't copy or fails, reading and writing does, or gives the reason.
  ReadBuffer buffer;
  for (size_t count = 1; count > 0 && rest > 0; rest -= count) {
    if (!reader.Read(buffer.Get(), std::min(buffer.GetSize(), rest), count) ||
        !Write(buffer.Get(), count)) {
      return false;
    }
  }
  return true;
}

bool FileWriter::Use(FILE* fp) {
  fp_ = fp;
  error_ = 0;
  return ReportOpen(fp, handler_);
}

bool FileWriter::Flush() {
  if (!CheckOpen(fp_)) {
    return false;
  }
  if (error_ != 0) {
    return Fail(error_);
  }
  return fflush(fp_) == 0 || Fail(errno);
}

bool FileWriter::Fail(int error) {
  error_ = error;
  SetLastError("write file: %s", strerror(error));
  return false;
}

void FileWriter::Abandon() {
  handler_.CloseHandle();
  fp_ = nullptr;
}

bool FileWriter::Close() {
  // A full disk often shows only when the buffer is written.
  if (!Flush()) {
    return false;
  }
  const int error = handler_.CloseHandle();
  fp_ = nullptr;
  if (error != 0) {
    SetLastError("close file: %s", strerror(error));
    return false;
  }
  return true;
}

const std::string& FileWriter::GetError() const { return handler_.GetError(); }

AtomicFileWriter::~AtomicFileWriter() {
  RemoveDraft();
  CloseDirectory();
}

bool AtomicFileWriter::Open(const std::string& file, const std::string& draft_prefix) {
  RemoveDraft();
  CloseDirectory();
  writer_.Abandon();
  const std::string digits = GetRandomDigits();
  if (digits.empty()) {
    return false;
  }
  file_ = file;
  draft_ = draft_prefix + digits;  // from here on, a signal handler may look for it
  struct stat older = {};
  if (!FindTarget(file, directory_, name_, older)) {
    return writer_.Open(-1);
  }
  const bool is_new = older.st_mode == 0;
  const mode_t mode = is_new ? kNewFileMode : kPrivateFileMode;
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  const int fd = name_.empty() ? -1 : openat(directory_, draft_.c_str(), flags, mode);
  if (name_.empty() || (fd < 0 && IsDraftRefused(errno))) {
    CloseDirectory();
    return writer_.Open(file, false);
  }
  const bool is_open = writer_.Open(fd);
  if (is_open && !is_new) {
    KeepPermissions(fd, file, older);
  }
  return is_open;
}

bool AtomicFileWriter::Write(const void* data, size_t size) { return writer_.Write(data, size); }

bool AtomicFileWriter::Commit() {
  if (!writer_.Close()) {
    return false;
  }
  if (directory_ < 0) {
    return true;
  }
  if (renameat(directory_, draft_.c_str(), directory_, name_.c_str()) != 0) {
    if (!IsRefused(errno)) {
      SetLastError("rename file: %s", strerror(errno));
      return false;
    }
    // The older file's permissions may not allow it.
    [[maybe_unused]] const bool is_readable = fchmodat(directory_, draft_.c_str(), S_IRUSR, 0) == 0;
    FileReader draft;
    if (!draft.Open(openat(directory_, draft_.c_str(), O_RDONLY | O_CLOEXEC)) ||
        !writer_.Open(file_, false) || !writer_.WriteRest(draft) || !writer_.Close()) {
      return false;
    }
    RemoveDraft();
  }
  CloseDirectory();
  return true;
}

void AtomicFileWriter::RemoveDraft() {
  if (directory_ >= 0) {
    unlinkat(directory_, draft_.c_str(), 0);
  }
}

void AtomicFileWriter::CloseDirectory() {
  const int directory = directory_;
  directory_ = -1;  // before its number can become that of another file
  if (directory >= 0) {
    close(directory);
  }
}

}  // namespace util
