#include "lwlogger.h"

#include <dirent.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <string_view>

#include "internal.h"
#include "misc.h"
#include "path.h"

namespace util {
namespace {

constexpr size_t kLineReserve = 1024;
constexpr size_t kAssistHeaderLimit = 4094;
constexpr size_t kHostNameSize = 1024;
constexpr int64_t kLogFileSizeLimit = 64 * 1024 * 1024;

// Indexed by level. Constants, as lines are logged before globals are constructed and after they
// are destroyed.
constexpr const char* kLevelNames[kLogEnd] = {"",     "fatal", "error", "warning",
                                              "info", "debug", "trace"};

std::string GetProcessName() { return Path::GetLastName(Path::GetProcessPath()); }

long GetChangeTime(const struct stat& status) {
  return status.st_ctim.tv_sec * kMillisecondsPerSecond +
         status.st_ctim.tv_nsec / kNanosecondsPerMillisecond;
}

void AppendNumber(std::string& text, int number) {
  char digits[std::numeric_limits<int>::digits10 + 2];
  const char* end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  text.append(digits, static_cast<size_t>(end - digits));
}

// Returns whether all of the text was written.
bool WriteAll(int fd, const char* text, size_t size) {
  while (size > 0) {
    const ssize_t count = write(fd, text, size);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    text += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

}  // namespace

thread_local int LwLogger::thread_id_ = 0;

LwLogger& LwLogger::GetLogger() {
  // Never destroyed, as destructors of globals may log. Not on the heap, where it would be a leak
  // of a plug-in that is unloaded.
  alignas(LwLogger) static char place[sizeof(LwLogger)];
  static LwLogger& logger = []() -> LwLogger& {
    atexit([] { GetLogger().CloseLogFile(); });
    return *new (place) LwLogger;
  }();
  return logger;
}

// Registered as early as possible: what a program registers later may log, as it runs before these
// lock and after they have unlocked.
[[gnu::init_priority(101)]] const LwLogger::ForkHandlers LwLogger::fork_handlers_;

// A child of `fork` has only the thread that forked: nobody else would release the locks there.
LwLogger::ForkHandlers::ForkHandlers() {
  static constexpr auto unlock = [] {
    GetTimeLock().unlock();
    GetLogger().access_lock_.unlock();
  };
  pthread_atfork(
      [] {
        GetLogger().access_lock_.lock();
        GetTimeLock().lock();
      },
      unlock,
      [] {
        thread_id_ = 0;
        unlock();
      });
}

LwLogger::LwLogger()
    : is_log_to_file_(false),
      is_log_assist_info_(false),
      is_log_process_name_(false),
      keep_file_count_(5),
      log_to_file_size_(0),
      log_std_fp_(nullptr),
      log_file_fp_(nullptr),
      log_level_(kLogInfo) {}

LwLogger::~LwLogger() { CloseLogFile(); }

void LwLogger::SetLogLevel(const std::string& log_level) {
  for (int level = kLogFatal; level < kLogEnd; ++level) {
    if (log_level == kLevelNames[level]) {
      log_level_ = static_cast<LogLevel>(level);
    }
  }
}

void LwLogger::Write(LogLevel log_level, int line, const char* file, const std::string& info) {
  if (IsOff(log_level) || info.empty()) {
    return;
  }
  std::string log_info = GetLineStart(log_level, line, file);
  if (log_info.empty()) {
    // Not copied: it can be the whole output of another program.
    WriteLine(log_level, info);
  } else {
    WriteLine(log_level, log_info += info);
  }
}

void LwLogger::WriteSync(LogLevel log_level, int line, const char* file, const char* fmt, ...) {
  if (IsOff(log_level) || fmt == nullptr || *fmt == '\0') {
    return;
  }
  const int error = errno;
  std::string log_info = GetLineStart(log_level, line, file);
  errno = error;  // for a "%m"
  va_list ap;
  va_start(ap, fmt);
  AppendFormat(log_info, fmt, ap);
  va_end(ap);
  WriteLine(log_level, log_info);
}

void LwLogger::WriteLine(LogLevel log_level, const std::string& log_info) {
  const std::lock_guard<std::mutex> lock(access_lock_);
  if (is_log_to_file_) {
    WriteToFile(log_info);
  }
  if (!is_log_to_file_) {
    WriteToConsole(log_level, log_info);
  }
}

std::string LwLogger::GetLineStart(LogLevel log_level, int line, const char* file) const {
  std::string log_info;
  log_info.reserve(kLineReserve);
  if (is_log_assist_info_) {
    AppendAssistHeader(log_level, line, file, log_info);
  }
  AppendPrefix(log_level, log_info);
  return log_info;
}

void LwLogger::AppendAssistHeader(LogLevel log_level, int line, const char* file,
                                  std::string& header) const {
  if (thread_id_ == 0) {
    thread_id_ = static_cast<int>(syscall(SYS_gettid));
  }
  std::string_view short_file = file;
  {
    const std::lock_guard<std::mutex> lock(access_lock_);  // the process may be ending
    if (!log_project_path_.empty() &&
        short_file.find(log_project_path_) != std::string_view::npos) {
      // The separator after the path goes too; a file that is just the path has none.
      short_file.remove_prefix(std::min(log_project_path_.size() + 1, short_file.size()));
    }
  }
  const bool has_name = log_level > kLogNone && log_level < kLogEnd;
  header += '[';
  AppendSystemTime(header, true);
  header += ' ';
  AppendNumber(header, thread_id_);
  header += ' ';
  header += has_name ? kLevelNames[log_level] : "";
  header += ' ';
  header += short_file;
  header += ':';
  AppendNumber(header, line);
  header += "] ";
  if (header.size() > kAssistHeaderLimit) {
    header.resize(kAssistHeaderLimit);
  }
}

void LwLogger::AppendPrefix(LogLevel log_level, std::string& text) const {
  if (log_level < kLogFatal || log_level > kLogWarning) {
    return;
  }
  const std::string process_name = is_log_process_name_ ? GetProcessName() : std::string();
  if (!process_name.empty()) {
    text += process_name + " ";
  }
  text += kLevelNames[log_level];
  text += ": ";
}

void LwLogger::WriteToFile(const std::string& log_info) {
  if (log_to_file_size_ >= kLogFileSizeLimit && log_file_fp_ != nullptr) {
    log_to_file_size_ = 0;
    fclose(log_file_fp_);
    log_file_fp_ = nullptr;
  }
  if (log_file_fp_ == nullptr) {
    OpenLogFile();
  }
  if (!is_log_to_file_) {
    return;
  }
  // Each line is to be seen at once, so the stream's buffer would only be a detour.
  const size_t size = strlen(log_info.c_str());
  if (size == 0 || !WriteAll(fileno(log_file_fp_), log_info.c_str(), size)) {
    is_log_to_file_ = false;
    return;
  }
  log_to_file_size_ += static_cast<int64_t>(size);
}

void LwLogger::OpenLogFile() {
  if (log_directory_.empty()) {
    log_directory_ = Path::GetCurrentPath();
  }
  if (log_directory_.empty()) {
    log_directory_ = "./";
  }
  RollLogFile(log_directory_, keep_file_count_);
  log_file_fp_ = fopen((log_directory_ + "/" + GetLogFileName()).c_str(), "we");
  if (log_file_fp_ == nullptr) {
    is_log_to_file_ = false;
  }
}

void LwLogger::CloseLogFile() {
  const std::lock_guard<std::mutex> lock(access_lock_);
  is_log_to_file_ = false;
  // Frees what a plug-in that is unloaded would leak.
  for (std::string* text : {&log_directory_, &log_project_path_, &log_file_name_prefix_}) {
    std::string().swap(*text);
  }
  if (log_file_fp_ != nullptr) {
    fclose(log_file_fp_);
    log_file_fp_ = nullptr;
  }
}

void LwLogger::WriteToConsole(LogLevel log_level, const std::string& log_info) {
  if (log_std_fp_ == nullptr) {
    log_std_fp_ = log_level > kLogError ? stdout : stderr;
  }
  fputs(log_info.c_str(), log_std_fp_);
  fflush(log_std_fp_);
}

std::string LwLogger::GetNamePrefix() const {
  if (!log_file_name_prefix_.empty()) {
    return log_file_name_prefix_;
  }
  const std::string process_name = GetProcessName();
  return process_name.empty() ? "unknown-pname" : process_name;
}

std::string LwLogger::GetLogFileName() {
  char host_name[kHostNameSize] = {};
  const bool is_host_known = gethostname(host_name, sizeof(host_name) - 1) == 0;
  return GetNamePrefix() + "." + GetSystemTime(true) + "." +
         (is_host_known ? host_name : "unknown-hname") + "." + std::to_string(getpid()) + ".log";
}

void LwLogger::RollLogFile(const std::string& dir, int max_file_cnt) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(dir.c_str()), &closedir);
  if (directory == nullptr) {
    return;
  }
  const std::string prefix = GetNamePrefix();
  std::map<long, std::string> log_files;  // by the time of their last change, oldest first
  while (const struct dirent* entry = readdir(directory.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") {
      continue;
    }
    const std::string path = dir + "/" + name;
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
      return;
    }
    if (!S_ISDIR(status.st_mode) && name.compare(0, prefix.size(), prefix) == 0 &&
        Path::GetExtension(name) == "log") {
      log_files.emplace(GetChangeTime(status), path);
    }
  }
  long del_cnt = static_cast<long>(log_files.size()) + 1 - max_file_cnt;
  for (auto file = log_files.begin(); file != log_files.end() && del_cnt > 0; ++file, --del_cnt) {
    remove(file->second.c_str());
  }
}

}  // namespace util
