// Logs from the first to the last code of a program, with a log file in the folder of the argument.
// Compiled without optimization, where a constant that is used needs a definition.

#include <cstdlib>
#include <thread>

#include "lwlogger.h"

namespace other::util {

struct Limit {
  static const int kBytes = 5;
};

void Log() { LOG_INFO("%s: %d\n", std::string("limit"), Limit::kBytes); }

}  // namespace other::util

namespace {

struct LogsAtExitLast {
  ~LogsAtExitLast() { LOG_ERROR("last\n"); }
} logs_at_exit_last;

struct LogsFirst {
  LogsFirst() { LOG_ERROR("first\n"); }
  ~LogsFirst() { LOG_ERROR("destroyed\n"); }
} logs_first;

struct LogsAtThreadEnd {
  ~LogsAtThreadEnd() { LOG_INFO("thread ends\n"); }
};

}  // namespace

int main(int, char** argv) {
  util::LwLogger::GetLogger().SetLogDirectory(argv[1]);
  util::LwLogger::GetLogger().SetLogToFile();
  other::util::Log();
  std::thread([] { const thread_local LogsAtThreadEnd logs_at_thread_end; }).join();
  atexit([] { LOG_INFO("at exit\n"); });
}
