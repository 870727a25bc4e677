#include "misc.h"

#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "build_info.h"

namespace util {
namespace {

// Stamps the build of the library into every program that links it, to be found with `strings`. The
// text stands apart from the string, whose making the compiler may cut into pieces.
[[gnu::used]] constexpr char kVersionText[] =
    "libbasic version=" LIBBASIC_VERSION " " BUILD_INFO_DATE " " BUILD_INFO_TIME
    " " BUILD_INFO_COMMIT;
[[gnu::used]] const std::string version = kVersionText;

constexpr size_t kLastErrorSize = 4096;
constexpr size_t kTimeTextSize = 1024;
constexpr size_t kHugeBufferSize = 4 * 1024 * 1024;
constexpr int64_t kMicrosecondsPerSecond = 1000000;
constexpr int64_t kNanosecondsPerMicrosecond = 1000;

thread_local std::string s_error_msg;

std::string FormatLocalTime(const char* format, const struct tm& local_time, bool with_usec,
                            int64_t usec) {
  char buffer[kTimeTextSize] = {};
  strftime(buffer, sizeof(buffer) - 1, format, &local_time);
  std::string text = buffer;
  if (with_usec) {
    text += "." + std::to_string(usec);
  }
  return text;
}

bool HasPrefix(const char* text, char first, const char* second) {
  return text[0] == first && text[1] != '\0' && strchr(second, text[1]) != nullptr;
}

}  // namespace

void SetLastError(const char* fmt, ...) {
  char buffer[kLastErrorSize] = {};
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buffer, sizeof(buffer), fmt, ap);
  va_end(ap);
  s_error_msg = buffer;
}

std::string GetLastError() { return s_error_msg; }

std::string StrFormat(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = StrFormat(format, ap);
  va_end(ap);
  return text;
}

std::string StrFormat(const char* format, va_list ap) {
  va_list ap_for_size;
  va_copy(ap_for_size, ap);
  const int size = vsnprintf(nullptr, 0, format, ap_for_size);
  va_end(ap_for_size);
  if (size <= 0) {
    return {};
  }
  std::string text(static_cast<size_t>(size), '\0');
  // The string's own terminator is the last byte that `vsnprintf` writes.
  vsnprintf(text.data(), text.size() + 1, format, ap);
  text.resize(strlen(text.c_str()));
  return text;
}

std::string StrFormat(const std::string& format, va_list ap) {
  return StrFormat(format.c_str(), ap);
}

void SplitString(const std::string& split_str, const std::string& delimiter,
                 std::vector<std::string>& out_strs) {
  if (split_str.empty() || delimiter.empty()) {
    return;
  }
  const std::string newstr = split_str + delimiter;
  size_t begin = 0;
  for (size_t end; (end = newstr.find(delimiter, begin)) != std::string::npos;
       begin = end + delimiter.size()) {
    if (end > begin) {
      out_strs.push_back(newstr.substr(begin, end - begin));
    }
  }
}

std::string LeftTrim(const std::string& src, const std::string& drop) {
  const size_t begin = src.find_first_not_of(drop);
  return begin == std::string::npos ? std::string() : src.substr(begin);
}

std::string RightTrim(const std::string& src, const std::string& drop) {
  // With nothing to keep, `npos` plus 1 is 0.
  return src.substr(0, src.find_last_not_of(drop) + 1);
}

std::string TrimString(const std::string& src, const std::string& drop) {
  return LeftTrim(RightTrim(src, drop), drop);
}

const char* GetLine(const char* buffer, std::string& line) {
  if (buffer == nullptr) {
    return nullptr;
  }
  const size_t length = strcspn(buffer, "\r\n");
  const char* end = buffer + length;
  if (*end == '\0') {
    return nullptr;
  }
  const char* next = end + (end[0] == '\r' && end[1] == '\n' ? 2 : 1);
  line.assign(buffer, length).push_back('\n');
  return next;
}

std::string ReplaceAll(const std::string& str, const std::string& old_str,
                       const std::string& new_str) {
  std::string ret_str = str;
  if (old_str.empty() || new_str.find(old_str) != std::string::npos) {
    return ret_str;
  }
  size_t pos = ret_str.find(old_str);
  while (pos != std::string::npos) {
    ret_str.replace(pos, old_str.size(), new_str);
    // The first occurrence was at `pos`, so the next one reaches into the replacement at least:
    // there is no need to search again from the beginning.
    const size_t overlap = old_str.size() - 1;
    pos = ret_str.find(old_str, pos > overlap ? pos - overlap : 0);
  }
  return ret_str;
}

bool IsIntegerDigit(const std::string& str) {
  const char* text = str.c_str();
  if (str.empty()) {
    return false;
  }
  const bool is_hex = HasPrefix(text, '0', "xX");
  if (is_hex) {
    text += 2;
  }
  if (HasPrefix(text, '0', "bB")) {
    text += 2;
  }
  return text[strspn(text, is_hex ? "0123456789abcdefABCDEF" : "0123456789")] == '\0';
}

void MicroSleep(int64_t microseconds) {
  struct timespec rest;
  rest.tv_sec = microseconds / kMicrosecondsPerSecond;
  rest.tv_nsec = microseconds % kMicrosecondsPerSecond * kNanosecondsPerMicrosecond;
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

int64_t GetTimestamp() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return now.tv_sec * kMicrosecondsPerSecond + now.tv_usec;
}

std::string GetSystemTime(bool with_usec) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  struct tm local_time = {};
  localtime_r(&now.tv_sec, &local_time);
  return FormatLocalTime("%Y%m%d_%H%M%S", local_time, with_usec, now.tv_usec);
}

std::string ConvertTimestamp(int64_t timestamp, bool with_usec) {
  const time_t seconds = timestamp / kMicrosecondsPerSecond;
  const struct tm* local_time = localtime(&seconds);
  if (local_time == nullptr) {
    return {};
  }
  return FormatLocalTime("%Y/%m/%d_%H:%M:%S", *local_time, with_usec,
                         timestamp - seconds * kMicrosecondsPerSecond);
}

std::string GetEnvVar(const std::string& var_name) {
  const char* value = getenv(var_name.c_str());
  return value == nullptr ? std::string() : std::string(value);
}

bool SetEnvVar(const std::string& var_name, const std::string& var_value) {
  if (setenv(var_name.c_str(), var_value.c_str(), 1) != 0) {
    SetLastError("setenv: %s\n", strerror(errno));
    return false;
  }
  return true;
}

std::string GetCallStack() { return {}; }

bool IsSupportCallStack() { return false; }

void PreferHugePages(void* buffer, size_t size) {
  if (size < kHugeBufferSize) {
    return;
  }
  // The whole pages inside the buffer: what lies around them may be another's.
  const auto page_size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t skipped = (page_size - reinterpret_cast<uintptr_t>(buffer) % page_size) % page_size;
  const int error = errno;
  madvise(static_cast<char*>(buffer) + skipped, (size - skipped) / page_size * page_size,
          MADV_HUGEPAGE);
  errno = error;
}

}  // namespace util
