#include "lwlogger.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <memory>

#include "misc.h"
#include "path.h"

namespace util {
namespace {

constexpr size_t kLineReserve = 1024;
constexpr size_t kAssistHeaderSize = 4096;
constexpr size_t kHostNameSize = 1024;
constexpr int64_t kLogFileSizeLimit = 64 * 1024 * 1024;
constexpr long kMillisecondsInSecond = 1000;
constexpr long kNanosecondsPerMillisecond = 1000000;

std::string GetProcessName() { return Path::GetLastName(Path::GetProcessPath()); }

long GetChangeTime(const struct stat& status) {
  return status.st_ctim.tv_sec * kMillisecondsInSecond +
         status.st_ctim.tv_nsec / kNanosecondsPerMillisecond;
}

}  // namespace

thread_local int LwLogger::thread_id_ = 0;

const std::map<LogLevel, std::string> LwLogger::log_level_map_ = {
    {kLogFatal, "fatal"}, {kLogError, "error"}, {kLogWarning, "warning"},
    {kLogInfo, "info"},   {kLogDebug, "debug"}, {kLogTrace, "trace"},
};

LwLogger& LwLogger::GetLogger() {
  static LwLogger logger;
  return logger;
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

LwLogger::~LwLogger() {
  if (log_file_fp_ != nullptr) {
    fclose(log_file_fp_);
    log_file_fp_ = nullptr;
  }
}

void LwLogger::SetLogLevel(const std::string& log_level) {
  for (const auto& [level, name] : log_level_map_) {
    if (name == log_level) {
      log_level_ = level;
    }
  }
}

void LwLogger::Write(LogLevel log_level, int line, const char* file, const std::string& info) {
  if (!IsOff(log_level) && !info.empty()) {
    WriteMessage(log_level, line, file, info);
  }
}

void LwLogger::WriteSync(LogLevel log_level, int line, const char* file, const char* fmt, ...) {
  if (IsOff(log_level) || fmt == nullptr || *fmt == '\0') {
    return;
  }
  va_list ap;
  va_start(ap, fmt);
  const std::string message = StrFormat(fmt, ap);
  va_end(ap);
  WriteMessage(log_level, line, file, message);
}

void LwLogger::WriteMessage(LogLevel log_level, int line, const char* file,
                            const std::string& message) {
  std::string log_info;
  log_info.reserve(kLineReserve);
  if (is_log_assist_info_) {
    log_info += GetAssistHeader(log_level, line, file);
  }
  log_info += GetPrefix(log_level);
  // A message with nothing ahead of it is written as it is: it can be the whole output of another
  // program, too large to be copied for nothing.
  const bool is_bare = log_info.empty();
  if (!is_bare) {
    log_info += message;
  }
  const std::string& text = is_bare ? message : log_info;

  const std::lock_guard<std::mutex> lock(access_lock_);
  if (is_log_to_file_) {
    WriteToFile(text);
  }
  if (!is_log_to_file_) {
    WriteToConsole(log_level, text);
  }
}

std::string LwLogger::GetAssistHeader(LogLevel log_level, int line, const char* file) const {
  if (thread_id_ == 0) {
    thread_id_ = static_cast<int>(syscall(SYS_gettid));
  }
  std::string short_file = file;
  const size_t path_length = log_project_path_.size();
  if (path_length > 0 && short_file.find(log_project_path_) != std::string::npos) {
    // The separator behind the path goes too; a file that is just the path has none.
    short_file.erase(0, path_length + 1);
  }
  const std::string time_str = GetSystemTime(true);
  const auto level = log_level_map_.find(log_level);
  const char* level_name = level == log_level_map_.end() ? "" : level->second.c_str();
  char output_str[kAssistHeaderSize] = {};
  snprintf(output_str, sizeof(output_str) - 1, "[%s %d %s %s:%d] ", time_str.c_str(), thread_id_,
           level_name, short_file.c_str(), line);
  return output_str;
}

std::string LwLogger::GetPrefix(LogLevel log_level) const {
  if (log_level < kLogFatal || log_level > kLogWarning) {
    return {};
  }
  std::string prefix = is_log_process_name_ ? GetProcessName() : std::string();
  if (!prefix.empty()) {
    prefix += " ";
  }
  return prefix + log_level_map_.at(log_level) + ": ";
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
  const int count = fprintf(log_file_fp_, "%s", log_info.c_str());
  if (count > 0) {
    log_to_file_size_ += count;
  }
  // A full disk often shows only when the stream's buffer goes out.
  if (count <= 0 || fflush(log_file_fp_) != 0) {
    is_log_to_file_ = false;
  }
}

void LwLogger::OpenLogFile() {
  if (log_directory_.empty()) {
    log_directory_ = Path::GetCurrentPath();
  }
  if (log_directory_.empty()) {
    log_directory_ = "./";
  }
  RollLogFile(log_directory_, keep_file_count_);
  log_file_fp_ = fopen((log_directory_ + "/" + GetLogFileName()).c_str(), "w");
  if (log_file_fp_ == nullptr) {
    is_log_to_file_ = false;
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
