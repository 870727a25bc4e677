#include "file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <memory>
#include <new>

#include "misc.h"
#include "path.h"

namespace util {
namespace {

constexpr size_t kBufferSize = 4096;
constexpr char kOpenFailed[] = "open file: %s";
constexpr char kOpenNamedFailed[] = "open file '%s': %s";

// Reads `size` bytes, or as many as are left; `count` tells how many. False is a read error, which
// is never taken for the end of the file.
bool Read(FILE* fp, void* data, size_t size, size_t& count) {
  count = fread(data, 1, size, fp);
  if (count < size && ferror(fp) != 0) {
    SetLastError("read file: %s", strerror(errno));
    return false;
  }
  return true;
}

bool Write(FILE* fp, const void* data, size_t size) {
  if (fwrite(data, 1, size, fp) != size) {
    SetLastError("write file: %s", strerror(errno));
    return false;
  }
  return true;
}

// The stream's own buffer goes out in here, so this is where a full disk often shows first.
bool FlushAndClose(FileHandler& handler, FILE* fp) {
  if (fflush(fp) != 0) {
    SetLastError("write file: %s", strerror(errno));
    return false;
  }
  const int error = handler.CloseHandle();
  if (error != 0) {
    SetLastError("close file: %s", strerror(error));
    return false;
  }
  return true;
}

bool WriteWholeFile(const std::string& file, const char* mode, const void* data, size_t size) {
  FileHandler handler;
  FILE* fp = handler.Open(file, mode);
  if (fp == nullptr) {
    SetLastError(kOpenFailed, handler.GetError().c_str());
    return false;
  }
  return Write(fp, data, size) && FlushAndClose(handler, fp);
}

}  // namespace

File::File(const std::string& file) : file_(file), binary_(nullptr), bin_size_(0) {}

File::~File() { delete[] binary_; }

bool File::ReadText(std::string& text) {
  FileHandler handler;
  FILE* fp = handler.Open(file_, "r");
  if (fp == nullptr) {
    SetLastError(kOpenFailed, handler.GetError().c_str());
    return false;
  }
  char buffer[kBufferSize];
  size_t count = 0;
  do {
    // One byte less than the buffer has, for the terminator.
    if (!Read(fp, buffer, sizeof(buffer) - 1, count)) {
      return false;
    }
    buffer[count] = '\0';
    text += buffer;
  } while (count > 0);
  return true;
}

bool File::WriteText(const std::string& text, bool append) {
  return WriteWholeFile(file_, append ? "a" : "w", text.data(), text.size());
}

int64_t File::ReadBinary(uint8_t*& bin) {
  if (binary_ == nullptr) {
    const int64_t size = GetFileSize(file_);
    if (size < 0) {
      return -1;
    }
    std::unique_ptr<uint8_t[]> binary(new (std::nothrow) uint8_t[static_cast<size_t>(size)]);
    if (binary == nullptr) {
      SetLastError("malloc size: %" PRId64, size);
      return -1;
    }
    PreferHugePages(binary.get(), static_cast<size_t>(size));
    FileHandler handler;
    FILE* fp = handler.Open(file_, "rb");
    if (fp == nullptr) {
      SetLastError(kOpenFailed, handler.GetError().c_str());
      return -1;
    }
    size_t count = 0;
    if (!Read(fp, binary.get(), static_cast<size_t>(size), count)) {
      return -1;
    }
    binary_ = binary.release();
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
  return WriteWholeFile(file_, append ? "ab" : "wb", bin, static_cast<size_t>(size));
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
  FileHandler src_handler;
  FILE* src_fp = src_handler.Open(src, "rb");
  if (src_fp == nullptr) {
    SetLastError(kOpenNamedFailed, src.c_str(), src_handler.GetError().c_str());
    return false;
  }
  FileHandler dst_handler;
  FILE* dst_fp = dst_handler.Open(dst, "wb");
  if (dst_fp == nullptr) {
    SetLastError(kOpenNamedFailed, dst.c_str(), dst_handler.GetError().c_str());
    return false;
  }
  char buffer[kBufferSize];
  size_t count = 0;
  do {
    if (!Read(src_fp, buffer, sizeof(buffer), count) || !Write(dst_fp, buffer, count)) {
      return false;
    }
  } while (count > 0);
  return FlushAndClose(dst_handler, dst_fp);
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

}  // namespace util
