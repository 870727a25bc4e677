// A plug-in with a copy of the library of its own. Logs to a file in a directory.

#include "lwlogger.h"

extern "C" __attribute__((visibility("default"))) void Log(const char* directory);
void Log(const char* directory) {
  util::LwLogger::GetLogger().SetLogDirectory(directory);
  util::LwLogger::GetLogger().SetLogToFile();
  LOG_ERROR("from a plug-in\n");
}
