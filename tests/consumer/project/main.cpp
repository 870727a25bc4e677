// A program outside the tree, which needs every source of the library and all headers at once.

#include <libbasic/file.h>
#include <libbasic/lwlogger.h>
#include <libbasic/misc.h>
#include <libbasic/options.h>
#include <libbasic/path.h>
#include <libbasic/process.h>

#include <string>

int main(int argc, const char** argv) {
  std::string command;
  util::Options options(argc, argv);
  util::Process process;
  if (!options.Parse("-c", "--command", "", "", nullptr, nullptr, command, false) ||
      process.Execute(command, 0) != util::PROCESS_SUCCESS) {
    LOG_ERROR("%s\n", util::GetLastError());
    return 1;
  }
  const std::string name = util::Path::GetLastName(process.GetOutputString());
  return name == "consumer\n" && util::File::GetFileSize(util::Path::GetProcessPath()) > 0 ? 0 : 1;
}
