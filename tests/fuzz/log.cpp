// Log lines: what arrives is header, prefix and message.

#include <unistd.h>

#include "fuzz.h"
#include "lwlogger.h"

void Fuzz(FuzzedDataProvider& data) {
  static const char* names[] = {"", "fatal", "error", "warning", "info", "debug", "trace", ""};
  static char text[8192];
  static FILE* const console = stdout = stderr = fmemopen(text, sizeof(text), "w");
  rewind(console);
  memset(text, 0, sizeof(text));
  const int threshold = data.ConsumeIntegralInRange(1, 6);
  const auto level = static_cast<util::LogLevel>(data.ConsumeIntegralInRange(0, 7));
  const int line = data.ConsumeIntegral<int>();
  const bool has_header = data.ConsumeBool(), is_finished = data.ConsumeBool();
  const std::string process = data.ConsumeBool() ? "fuzz_log " : "";
  const std::string path = TakeText(data).c_str(), message = TakeText(data);
  std::string file = data.ConsumeBool() ? path : "";
  // Long enough for the limit of the header.
  file.append(data.ConsumeBool() ? 4000 : 0, 'x') += TakeText(data).c_str();

  struct : util::LwLogger {
  } logger;
  logger.SetLogLevel(names[threshold]);
  logger.SetLogProjectPath(path);
  if (has_header) logger.SetLogAssistInfo();
  if (!process.empty()) logger.SetLogProcessName();
  is_finished ? logger.Write(level, line, file.c_str(), message)
              : logger.Write(level, line, file.c_str(), "%d%%%s", line, message);

  std::string expected;
  if (has_header) {
    if (!path.empty() && file.find(path) != std::string::npos) file.erase(0, path.size() + 1);
    // The time is not known here.
    expected = std::string(text, strcspn(text, " ")) + " " + std::to_string(getpid()) + " ";
    expected += names[level] + (" " + file) + ":" + std::to_string(line) + "] ";
    expected = expected.substr(0, 4094);
  }
  if (level >= 1 && level <= 3) expected += process + names[level] + ": ";
  expected += (is_finished ? "" : std::to_string(line) + "%") + message.c_str();
  Expect(std::string(text), level > threshold || (is_finished && message.empty()) ? "" : expected);
}
