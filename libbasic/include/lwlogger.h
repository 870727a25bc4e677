#ifndef LIBBASIC_LWLOGGER_H_
#define LIBBASIC_LWLOGGER_H_

#if __cplusplus < 201703L
#include "libbasic needs C++17 or later"  // Unlike #error, it ends the compilation at once.
#endif

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <type_traits>

#include "misc.h"

/// \file
/// The process-wide logger and the `LOG_` macros that write to it.

namespace util {

/// How important a message is. A larger number is more talkative; a message passes when its level
/// is at most the threshold.
enum LogLevel {
  kLogNone = 0,     ///< Passes every threshold, as graver than fatal; can't be set as one by name.
  kLogFatal = 1,    ///< "fatal". Nothing ends because of it.
  kLogError = 2,    ///< "error"
  kLogWarning = 3,  ///< "warning"
  kLogInfo = 4,     ///< "info", the initial threshold
  kLogDebug = 5,    ///< "debug"
  kLogTrace = 6,    ///< "trace"
  kLogEnd = 7,      ///< One past the levels.
};

/// The one channel through which a program speaks: errors, and its ordinary output too. There is
/// one logger in a process, got with `GetLogger`. A program may log from its first to its last
/// instruction: also while globals are constructed and destroyed.
///
/// A line is an optional assist header, the level's prefix ("fatal: ", "error: " or "warning: ",
/// after the process name and a blank if that is on; nothing for the other levels) and
/// the message, of any length but up to its first zero byte. Messages carry their own line end:
/// none is added, none removed. Each line is flushed at once.
///
/// A line goes to one place only: to the log file if that is on, otherwise to the console. The
/// first console line of the process chooses the stream for all later ones: `stderr` for an error
/// and graver levels, else `stdout`.
///
/// Lines may be written by any number of threads; each arrives whole. A child of `fork` can log
/// too, also if other threads of its parent were logging. The setters take no lock: call them
/// before other threads log. No operation reports a failure. The last-error text changes only if
/// the path of the executable or the working directory can't be read.
class LwLogger {
 public:
  /// Returns the process's logger, which the first call makes. Safe against concurrent first calls.
  /// Normal process exit, or unloading the plug-in that this is part of, closes its log file; lines
  /// that are logged after that go to the console, with whole names of source files.
  static LwLogger& GetLogger();

  /// Closes the log file.
  virtual ~LwLogger();

  LwLogger(const LwLogger&) = delete;
  LwLogger(LwLogger&&) = delete;
  LwLogger& operator=(const LwLogger&) = delete;
  LwLogger& operator=(LwLogger&&) = delete;

  /// Returns the threshold.
  LogLevel GetLogLevel() const { return log_level_; }

  /// \name Switches
  /// They can only be switched on. A failure of the log file switches that one off.
  /// \{

  /// Sends lines to a log file. At the first line, and again when the file has reached 64 MiB, a
  /// new one is made, named: prefix, ".", local time, ".", microseconds, ".", host name, ".",
  /// process id, ".log". The oldest files with the same prefix in the folder are deleted for it.
  /// If a file can't be created or written, this line and all later ones go to the console until
  /// this is called again. Part of that line may be in the file too. An empty line counts as a
  /// failed write.
  void SetLogToFile() { is_log_to_file_ = true; }

  /// Opens each line with "[time thread level file:line] ", cut to 4094 bytes: the time as from
  /// `GetSystemTime(true)`, the kernel's id of the thread, the bare name of the level.
  void SetLogAssistInfo() { is_log_assist_info_ = true; }

  /// Begins fatal, error and warning lines with the executable's name.
  void SetLogProcessName() { is_log_process_name_ = true; }

  /// \}
  /// \name Settings
  /// They are stored as they come, without a check.
  /// \{

  /// Sets how many log files may exist once a new one is open; the default is 5. The files whose
  /// last change is oldest are deleted; with 1 or less, all older ones. Every file in the folder
  /// whose name begins with the prefix and ends in ".log" counts and can be deleted, whoever wrote
  /// it.
  void SetKeepFileCount(int count) { keep_file_count_ = count; }

  /// Sets the folder of the log files, which must exist. By default it is the working directory at
  /// the time of the first file. Folder and prefix apply from the next new file on.
  void SetLogDirectory(const std::string& directory) { log_directory_ = directory; }

  /// Sets the path that the assist header cuts off the names of source files, without a "/" at its
  /// end. If the path occurs anywhere in a name, as many bytes are cut off its front, and one more.
  void SetLogProjectPath(const std::string& path) { log_project_path_ = path; }

  /// Sets the first part of the names of log files; the executable's name when empty.
  void SetLogFileNamePrefix(const std::string& prefix) { log_file_name_prefix_ = prefix; }

  /// Sets the threshold by the name of a level, "fatal" to "trace", in lower case. Unknown
  /// names are ignored.
  void SetLogLevel(const std::string& log_level);

  /// \}
  /// \name Writing
  /// Use the macros below: they pass the place, and do nothing for a level that is switched off.
  /// \{

  /// Writes finished text: a `%` in it is an ordinary character. An empty text writes nothing.
  /// \param line  The line of the call, for the assist header.
  /// \param file  The source file of the call, for the assist header; not null.
  void Write(LogLevel log_level, int line, const char* file, const std::string& info);

  /// Writes a text formatted as `printf` does, except that a `std::string` can be passed for
  /// a `%s`. Values of other classes don't compile. The compiler does not check that the values fit
  /// the format; it does for `Write(log_level, line, file, StrFormat(fmt, ...))`. A null or empty
  /// format writes nothing. The values are taken as copies, so that a constant needs no definition.
  /// \param line  The line of the call, for the assist header.
  /// \param file  The source file of the call, for the assist header; not null.
  template <typename... Args>
  void Write(LogLevel log_level, int line, const char* file, const char* fmt, Args... args) {
    WriteSync(log_level, line, file, fmt, CvtString(args)...);
  }

  /// \}

 protected:
  LwLogger();

  /// Does the work of `Write`: filters by level, composes the line and writes it.
  void WriteSync(LogLevel log_level, int line, const char* file, const char* fmt, ...);

  /// Turns a string into what `%s` takes.
  static const char* CvtString(const std::string& value) { return value.c_str(); }
  /// Gives anything but a string back as a variadic function receives it.
  template <typename T>
  static auto CvtString(const T& value) {
    return PromoteValue(value);
  }

  /// Makes the name of a new log file, without a folder. Creates nothing.
  std::string GetLogFileName();

  /// Deletes the oldest log files in `dir` to make room for `max_file_cnt` files, counting one that
  /// is about to be opened. Deletes nothing if `dir` can't be read or `stat` fails on an entry. Of
  /// files changed in the same millisecond, one counts.
  void RollLogFile(const std::string& dir, int max_file_cnt);

 private:
  template <typename... Args>
  friend class LogCall;

  struct ForkHandlers {
    ForkHandlers();
  };

  bool IsOff(LogLevel log_level) const { return log_level_ < log_level; }
  void WriteLine(LogLevel log_level, const std::string& log_info);
  std::string GetLineStart(LogLevel log_level, int line, const char* file) const;
  void AppendAssistHeader(LogLevel log_level, int line, const char* file,
                          std::string& header) const;
  void AppendPrefix(LogLevel log_level, std::string& text) const;
  std::string GetNamePrefix() const;
  void OpenLogFile();
  void CloseLogFile();
  void WriteToFile(const std::string& log_info);
  void WriteToConsole(LogLevel log_level, const std::string& log_info);

  static const ForkHandlers fork_handlers_;
  static thread_local int thread_id_;

  bool is_log_to_file_;
  bool is_log_assist_info_;
  bool is_log_process_name_;
  int keep_file_count_;
  int64_t log_to_file_size_;
  FILE* log_std_fp_;   // not owned
  FILE* log_file_fp_;  // owned
  LogLevel log_level_;
  std::string log_directory_;
  std::string log_project_path_;
  std::string log_file_name_prefix_;
  mutable std::mutex access_lock_;
};

/// A call of a `LOG_` macro. Class template argument deduction does not odr-use the values, so that
/// scalars can be passed by value, which needs no definition of a constant, and strings by
/// reference.
template <typename... Args>
class LogCall {
 public:
  /// Writes a text formatted as `printf` does.
  LogCall(LogLevel log_level, int line, const char* file, const char* fmt,
          std::conditional_t<std::is_class_v<Args>, const Args&, Args>... args) {
    LwLogger::GetLogger().WriteSync(log_level, line, file, fmt, LwLogger::CvtString(args)...);
  }

  /// Writes finished text.
  LogCall(LogLevel log_level, int line, const char* file, const std::string& info) {
    LwLogger::GetLogger().Write(log_level, line, file, info);
  }
};

/// Deduces the types of the values without odr-using them.
template <typename... Args>
LogCall(LogLevel, int, const char*, const char*, Args...) -> LogCall<Args...>;

/// Calls `SetLogProcessName` of the process's logger.
inline void SetLogProcessName() { LwLogger::GetLogger().SetLogProcessName(); }

/// Calls `SetLogLevel` of the process's logger.
inline void SetLogLevel(const std::string& log_level) {
  LwLogger::GetLogger().SetLogLevel(log_level);
}

}  // namespace util

/// \name Logging
/// These log a `std::string` as it is, or a `printf` format and its values; a literal alone is a
/// format. When the threshold hides the level, the arguments are not evaluated. `<syslog.h>` has
/// macros of the same names. A source that includes both defines `LIBBASIC_NO_LOG_MACROS` first,
/// and writes `LWLOGGER_WRITE(util::kLogInfo, ...)`.
/// \{

#ifndef LIBBASIC_NO_LOG_MACROS
#define LOG_FATAL(...) LWLOGGER_WRITE(::util::kLogFatal, __VA_ARGS__)      ///< At level fatal.
#define LOG_ERROR(...) LWLOGGER_WRITE(::util::kLogError, __VA_ARGS__)      ///< At level error.
#define LOG_WARNING(...) LWLOGGER_WRITE(::util::kLogWarning, __VA_ARGS__)  ///< At level warning.
#define LOG_INFO(...) LWLOGGER_WRITE(::util::kLogInfo, __VA_ARGS__)        ///< At level info.
#define LOG_DEBUG(...) LWLOGGER_WRITE(::util::kLogDebug, __VA_ARGS__)      ///< At level debug.
#define LOG_TRACE(...) LWLOGGER_WRITE(::util::kLogTrace, __VA_ARGS__)      ///< At level trace.
#endif

/// At a given `LogLevel`.
#define LWLOGGER_WRITE(level, ...)                                \
  do {                                                            \
    if (::util::LwLogger::GetLogger().GetLogLevel() >= (level)) { \
      ::util::LogCall((level), __LINE__, __FILE__, __VA_ARGS__);  \
    }                                                             \
  } while (false)

/// \}

#endif  // LIBBASIC_LWLOGGER_H_
