#include "path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "misc.h"

namespace util {
namespace {

constexpr size_t kPathBufferSize = 1024;

bool HasFileType(const std::string& path, mode_t type) {
  struct stat status;
  return !path.empty() && stat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == type;
}

}  // namespace

bool Path::IsPathExists(const std::string& path) {
  return !path.empty() && access(path.c_str(), F_OK) == 0;
}

bool Path::IsDirectory(const std::string& path) { return HasFileType(path, S_IFDIR); }

bool Path::IsNormalFile(const std::string& path) { return HasFileType(path, S_IFREG); }

bool Path::IsSameFile(const std::string& path, const std::string& other) {
  struct stat status;
  struct stat other_status;
  return stat(path.c_str(), &status) == 0 && stat(other.c_str(), &other_status) == 0 &&
         status.st_dev == other_status.st_dev && status.st_ino == other_status.st_ino;
}

std::string Path::GetParentPath(const std::string& path) {
  std::string parent = path;
  if (!parent.empty() && parent.back() == '/') {
    parent.pop_back();
  }
  const size_t slash = parent.rfind('/');
  return slash == std::string::npos ? std::string() : parent.substr(0, slash);
}

std::string Path::GetExtension(const std::string& path) {
  const std::string name = GetLastName(path);
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::string Path::GetLastName(const std::string& path) {
  // Without a "/", `npos` plus 1 is 0.
  return path.substr(path.rfind('/') + 1);
}

std::string Path::GetFileName(const std::string& path) {
  const std::string name = GetLastName(path);
  return name.substr(0, name.rfind('.'));
}

std::string Path::GetAbsolutePath(const std::string& path) {
  if (path.empty()) {
    SetLastError("the path is empty");
    return {};
  }
  const std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
  if (resolved == nullptr) {
    SetLastError("realpath: %s", strerror(errno));
    return {};
  }
  return resolved.get();
}

std::string Path::GetCurrentPath() {
  char buf[kPathBufferSize] = {};
  if (getcwd(buf, sizeof(buf)) == nullptr) {
    SetLastError("getcwd: %s", strerror(errno));
    return {};
  }
  return buf;
}

std::string Path::GetProcessPath() {
  char buf[kPathBufferSize] = {};
  if (readlink("/proc/self/exe", buf, sizeof(buf) - 1) < 1) {
    SetLastError("readlink: %s", strerror(errno));
    return {};
  }
  return buf;
}

}  // namespace util
