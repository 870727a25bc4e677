#include "file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "misc.h"
#include "path.h"

namespace util {
namespace {

// Large enough that system calls don't count, small enough for a processor's cache.
constexpr size_t kBlockSize = 64 * 1024;
// The kernel copies to this alignment twice as fast as to the one of `malloc`.
constexpr size_t kAlignment = 64;
constexpr size_t kHugePageSize = 2 * 1024 * 1024;
constexpr size_t kKernelCopySize = 1 << 30;
constexpr size_t kTextChunkSize = 4095;
// As many whole chunks as a block has room for, so that each begins where it would if it were read
// by itself.
constexpr size_t kTextBlockSize = kBlockSize / kTextChunkSize * kTextChunkSize;
constexpr char kOpenFailed[] = "open file: %s";
constexpr char kOpenNamedFailed[] = "open file '%s': %s";

// Too large for the stack of a thread.
struct alignas(kAlignment) Block {
  char bytes[kBlockSize];
};

struct Free {
  void operator()(uint8_t* buffer) const { free(buffer); }
};

// Makes a buffer that is fast to fill; null when there is no memory.
std::unique_ptr<uint8_t[], Free> MakeBuffer(size_t size) {
  const size_t alignment = size < 2 * kHugePageSize ? kAlignment : kHugePageSize;
  const size_t rounded_size = (std::max(size, size_t{1}) + alignment - 1) / alignment * alignment;
  std::unique_ptr<uint8_t[], Free> buffer(
      static_cast<uint8_t*>(aligned_alloc(alignment, rounded_size)));
  if (buffer != nullptr) {
    PreferHugePages(buffer.get(), size);
  }
  return buffer;
}

bool CheckOpen(const FILE* fp) {
  if (fp == nullptr) {
    SetLastError("no file is open");
    return false;
  }
  return true;
}

// Appends what was read, as text: in each chunk, a zero byte drops the rest.
void AppendChunks(const char* bytes, size_t size, std::string& text) {
  for (size_t begin = 0; begin < size; begin += kTextChunkSize) {
    const char* chunk = bytes + begin;
    text.append(chunk, strnlen(chunk, std::min(kTextChunkSize, size - begin)));
  }
}

// Makes room for a file of `size` bytes; a negative size is unknown.
void ReserveForText(int64_t size, std::string& text) {
  if (size > 0) {
    text.reserve(text.size() + static_cast<size_t>(size));
    PreferHugePages(text.data() + text.size(), static_cast<size_t>(size));
  }
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
  ReserveForText(reader.GetSize(), text);
  const std::unique_ptr<Block> block(new Block);
  bool is_read = false;
  size_t count = 0;
  do {
    is_read = reader.Read(block->bytes, kTextBlockSize, count);
    AppendChunks(block->bytes, count, text);
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
  struct stat64 status;
  if (stat64(file.c_str(), &status) != 0) {
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
  fd_ = open(file.c_str(), flag, 0);
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
  fp_ = fopen(file.c_str(), mode);
  if (fp_ == nullptr) {
    error_msg = strerror(errno);
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

bool FileReader::Open(const std::string& file) {
  fp_ = handler_.Open(file, "rbe");
  if (fp_ == nullptr) {
    SetLastError(kOpenFailed, handler_.GetError().c_str());
    return false;
  }
  setvbuf(fp_, nullptr, _IONBF, 0);  // a block is as good as the stream's own buffer
  return true;
}

bool FileReader::Read(void* data, size_t size, size_t& count) {
  count = 0;
  if (!CheckOpen(fp_)) {
    return false;
  }
  count = fread(data, 1, size, fp_);
  if (count < size && ferror(fp_) != 0) {
    SetLastError("read file: %s", strerror(errno));
    return false;
  }
  return true;
}

int64_t FileReader::GetSize() const {
  struct stat64 status;
  if (!CheckOpen(fp_)) {
    return -1;
  }
  if (fstat64(fileno(fp_), &status) != 0) {
    SetLastError("fstat64: %s", strerror(errno));
    return -1;
  }
  return status.st_size;
}

const std::string& FileReader::GetError() const { return handler_.GetError(); }

bool FileWriter::Open(const std::string& file, bool append) {
  fp_ = handler_.Open(file, append ? "abe" : "wbe");
  if (fp_ == nullptr) {
    SetLastError(kOpenFailed, handler_.GetError().c_str());
    return false;
  }
  return true;
}

bool FileWriter::Write(const void* data, size_t size) {
  if (!CheckOpen(fp_)) {
    return false;
  }
  if (fwrite(data, 1, size, fp_) != size) {
    SetLastError("write file: %s", strerror(errno));
    return false;
  }
  return true;
}

bool FileWriter::WriteRest(FileReader& reader) {
  if (!Flush() || !CheckOpen(reader.fp_)) {
    return false;
  }
  while (copy_file_range(fileno(reader.fp_), nullptr, fileno(fp_), nullptr, kKernelCopySize, 0) >
         0) {
  }
  // Where the kernel can't copy or fails, reading and writing does, or gives the reason.
  const std::unique_ptr<Block> block(new Block);
  size_t count = 0;
  do {
    if (!reader.Read(block->bytes, kBlockSize, count) || !Write(block->bytes, count)) {
      return false;
    }
  } while (count > 0);
  return true;
}

bool FileWriter::Flush() {
  if (!CheckOpen(fp_)) {
    return false;
  }
  if (fflush(fp_) != 0) {
    SetLastError("write file: %s", strerror(errno));
    return false;
  }
  return true;
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

}  // namespace util
