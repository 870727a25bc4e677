// Stands in for clang-offload-bundler. Unless told otherwise, it copies the device image to the
// output path, says nothing and exits with 0. The environment tells otherwise:
//
//   BUNDLER_RECORD  file to which the arguments are appended, a NUL behind each; with a named pipe
//                   the program waits there for a reader
//   BUNDLER_SOURCE  file to use in place of the device image
//   BUNDLER_WRITES  "link": the output becomes a hard link to the source, at no cost;
//                   "nothing": the output path is left alone
//   BUNDLER_SIZE    bytes to which the output is cut, or extended without using space on disk; with
//                   "link", the source is the same file
//   BUNDLER_STDOUT  text for standard output, ahead of
//   BUNDLER_STDERR  text for standard error
//   BUNDLER_REPEAT  how often to write these two
//   BUNDLER_EXIT    exit code
//   BUNDLER_SIGNAL  signal to end by

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

static std::string GetSetting(const char* name, const std::string& default_value = "") {
  const char* value = getenv(name);
  return value == nullptr ? default_value : value;
}

int main(int argc, const char** argv) {
  std::ofstream record(GetSetting("BUNDLER_RECORD"), std::ios::app);
  std::string image;
  std::string output;
  for (int i = 0; i < argc; ++i) {
    const std::string arg = argv[i];
    record << arg << '\0';
    (arg.rfind("-output=", 0) == 0 ? output : image) = arg.substr(arg.find('=') + 1);
  }
  record.close();

  const std::string source = GetSetting("BUNDLER_SOURCE", image);
  const std::string how = GetSetting("BUNDLER_WRITES", "copy");
  const std::string size = GetSetting("BUNDLER_SIZE");
  if (how == "link") {
    std::filesystem::create_hard_link(source, output);
  } else if (how == "copy") {
    std::ofstream(output) << std::ifstream(source).rdbuf();
  }
  if (!size.empty()) {
    std::filesystem::resize_file(output, std::stoull(size));
  }

  for (int count = std::stoi(GetSetting("BUNDLER_REPEAT", "1")); count > 0; --count) {
    std::cout << GetSetting("BUNDLER_STDOUT") << std::flush;
    std::cerr << GetSetting("BUNDLER_STDERR") << std::flush;
  }
  raise(std::stoi(GetSetting("BUNDLER_SIGNAL", "0")));  // signal 0 does nothing
  return std::stoi(GetSetting("BUNDLER_EXIT", "0"));
}
