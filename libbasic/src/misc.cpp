#include "misc.h"

#include <sys/mman.h>
#include <sys/random.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <limits>
#include <mutex>
#include <string_view>

#include "build_info.h"
#include "internal.h"

namespace util {
namespace {

// Stamps the build of the library into every program that links it, to be found with `strings`. The
// text is separate from the string, whose initialisation the compiler may split into pieces.
[[gnu::used]] constexpr char kVersionText[] =
    "libbasic version=" LIBBASIC_VERSION " " BUILD_INFO_DATE " " BUILD_INFO_TIME
    " " BUILD_INFO_COMMIT;
[[gnu::used]] const std::string version = kVersionText;

constexpr size_t kLastErrorSize = 4096;
constexpr size_t kShortTextSize = 512;
constexpr size_t kTimeTextSize = 1024;
constexpr size_t kHugeBufferSize = 4 * 1024 * 1024;

// An array, as a string would be destroyed with the thread, before the last of what may set it.
thread_local char s_error_msg[kLastErrorSize];

std::string FormatLocalTime(const char* format, const struct tm& local_time, bool with_usec,
                            int64_t usec) {
  char buffer[kTimeTextSize];
  std::string text(buffer, strftime(buffer, sizeof(buffer) - 1, format, &local_time));
  if (with_usec) {
    text += '.';
    text += std::to_string(usec);
  }
  return text;
}

// Appends to `text`. What the forms of `StrFormat` share, at no cost of a call.
void Format(const char* format, va_list ap, std::string& text) {
  // Most texts are short: they need neither a second formatting nor a buffer from the heap.
  char short_text[kShortTextSize];
  va_list ap_for_long_text;
  va_copy(ap_for_long_text, ap);
  const int size = vsnprintf(short_text, sizeof(short_text), format, ap);
  if (size >= static_cast<int>(sizeof(short_text))) {
    const size_t begin = text.size();
    text.resize(begin + static_cast<size_t>(size));
    // The string's own terminator is the last byte that `vsnprintf` writes.
    vsnprintf(&text[begin], static_cast<size_t>(size) + 1, format, ap_for_long_text);
    text.resize(begin + strlen(&text[begin]));
  } else if (size > 0) {
    text.append(short_text, strnlen(short_text, static_cast<size_t>(size)));
  }
  va_end(ap_for_long_text);
}

// Writes the last `count` digits of `number`. Returns their end.
char* PutDigits(char* text, int number, int count) {
  for (int i = count - 1; i >= 0; --i, number /= 10) {
    text[i] = static_cast<char>('0' + number % 10);
  }
  return text + count;
}

// A second as local time, such as "20250102_130405". Threads keep the last one, as log lines come
// many to a second and its conversion takes a tenth of the time of a line.
struct LocalSecond {
  time_t time = -1;
  long zone = 0;  // the C library's `timezone` and `daylight`
  int has_summer_time = 0;
  char digits[15] = {};
};

LocalSecond ConvertSecond(time_t time) {
  LocalSecond second;
  struct tm local_time = {};
  {
    const std::lock_guard<std::mutex> lock(GetTimeLock());
    localtime_r(&time, &local_time);
  }
  second.time = time;
  second.zone = timezone;
  second.has_summer_time = daylight;
  // By hand, as `strftime` takes as long as all the rest.
  char* end = PutDigits(second.digits, 1900 + local_time.tm_year, 4);
  end = PutDigits(end, 1 + local_time.tm_mon, 2);
  end = PutDigits(end, local_time.tm_mday, 2);
  *end++ = '_';
  end = PutDigits(end, local_time.tm_hour, 2);
  end = PutDigits(end, local_time.tm_min, 2);
  PutDigits(end, local_time.tm_sec, 2);
  return second;
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
  memcpy(s_error_msg, buffer, strlen(buffer) + 1);
}

std::string GetLastError() { return s_error_msg; }

std::string StrFormat(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text;
  Format(format, ap, text);
  va_end(ap);
  return text;
}

std::string FormatList(const char* format, va_list ap) {
  std::string text;
  Format(format, ap, text);
  return text;
}

std::string FormatValues(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = FormatList(format, ap);
  va_end(ap);
  return text;
}

void AppendFormat(std::string& text, const char* format, va_list ap) { Format(format, ap, text); }

void SplitString(const std::string& split_str, const std::string& delimiter,
                 std::vector<std::string>& out_strs) {
  if (split_str.empty() || delimiter.empty()) {
    return;
  }
  std::vector<std::string_view> pieces;
  const std::string_view text = split_str;
  const auto add = [&](size_t begin, size_t end) {
    if (end > begin) {
      pieces.push_back(text.substr(begin, end - begin));
    }
  };
  const auto find = [&](size_t from) {  // a fifth less time for a single byte
    return delimiter.size() == 1 ? text.find(delimiter[0], from) : text.find(delimiter, from);
  };
  size_t begin = 0;
  for (size_t end; (end = find(begin)) != std::string_view::npos; begin = end + delimiter.size()) {
    add(begin, end);
  }
  // The end of the text counts as a delimiter. The text is searched as if one stood there, so a
  // delimiter of several bytes can begin inside the text.
  const size_t overlap = std::min(delimiter.size() - 1, text.size() - begin);
  const size_t tail = text.size() - overlap;
  add(begin, tail + (split_str.substr(tail) + delimiter).find(delimiter));

  // The text may itself be an element of `out_strs`, so it is copied before `out_strs` grows.
  std::vector<std::string> copies(pieces.begin(), pieces.end());
  if (out_strs.empty()) {
    out_strs.swap(copies);
    return;
  }
  out_strs.insert(out_strs.end(), std::make_move_iterator(copies.begin()),
                  std::make_move_iterator(copies.end()));
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
  std::string text = str;
  if (old_str.empty() || new_str.find(old_str) != std::string::npos) {
    return text;
  }
  // The result grows in the front of the buffer, [0, done); what is still to be searched lies at
  // its back, [rest, end). Moving bytes between the two costs as much as the bytes replaced,
  // however long the text is.
  size_t done = 0;
  size_t rest = 0;
  const auto finish = [&](size_t end) {
    memmove(&text[done], &text[rest], end - rest);
    done += end - rest;
    rest = end;
  };
  for (size_t pos; (pos = text.find(old_str, rest)) != std::string::npos;) {
    finish(pos);
    rest += old_str.size();
    // There was no occurrence before this one, so the next one reaches into the replacement at
    // least. Search again from where it could begin.
    const size_t again = std::min(done, old_str.size() - 1);
    done -= again;
    const size_t needed = again + new_str.size();
    if (rest - done < needed) {
      const size_t added = text.size() + needed;
      text.insert(rest, added, '\0');
      rest += added;
    }
    rest -= needed;
    memmove(&text[rest], &text[done], again);
    memcpy(&text[rest + again], new_str.data(), new_str.size());
  }
  finish(text.size());
  text.resize(done);
  return text;
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

std::string GetRandomDigits() {
  uint64_t number = 0;
  if (getentropy(&number, sizeof(number)) != 0) {
    SetLastError("getentropy: %s", strerror(errno));
    return {};
  }
  return StrFormat("%016" PRIx64, number);
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
  std::string text;
  AppendSystemTime(text, with_usec);
  return text;
}

std::mutex& GetTimeLock() {
  static std::mutex lock;
  return lock;
}

void AppendSystemTime(std::string& text, bool with_usec) {
  thread_local LocalSecond second;
  struct timeval now;
  gettimeofday(&now, nullptr);
  if (now.tv_sec != second.time || timezone != second.zone || daylight != second.has_summer_time) {
    second = ConvertSecond(now.tv_sec);
  }
  text.append(second.digits, sizeof(second.digits));
  if (with_usec) {
    char digits[std::numeric_limits<suseconds_t>::digits10 + 1];
    text += '.';
    text.append(digits, std::to_chars(std::begin(digits), std::end(digits), now.tv_usec).ptr);
  }
}

std::string ConvertTimestamp(int64_t timestamp, bool with_usec) {
  const time_t seconds = timestamp / kMicrosecondsPerSecond;
  const std::lock_guard<std::mutex> lock(GetTimeLock());
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
  // Only the whole pages inside the buffer: the others may belong to other objects too.
  const auto page_size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t skipped = (page_size - reinterpret_cast<uintptr_t>(buffer) % page_size) % page_size;
  const int error = errno;
  madvise(static_cast<char*>(buffer) + skipped, (size - skipped) / page_size * page_size,
          MADV_HUGEPAGE);
  errno = error;
}

}  // namespace util
