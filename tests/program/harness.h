#ifndef TESTS_PROGRAM_HARNESS_H_
#define TESTS_PROGRAM_HARNESS_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>

// Exit status, standard output, standard error.
using Result = std::tuple<int, std::string, std::string>;
const Result kSuccess = {0, "", ""};
Result Error(const std::string& message);

// The whole content of a file; empty when it can't be read.
std::string ReadFile(const std::string& file);
void WriteFile(const std::string& file, const std::string& bytes);
// The same bytes for the same size.
std::string MakeBytes(size_t size);

// Puts the test into a folder of its own, which goes at the end. In there, `tavrofuse` is the tool,
// `stand_in` the folder of the stand-in bundler and `llvm` that of the real one. The tool uses the
// stand-in unless told otherwise; nothing else that it reads is set in the environment.
class ProgramTest : public testing::Test {
 protected:
  ProgramTest();
  ~ProgramTest() override;

  // Has the shell run a command, with `$image3` for the option that names the device image. A
  // temporary fat binary of this image that is left afterwards is a failure of the test.
  Result Run(const std::string& command);

  // The arguments that the stand-in got in the last run, of all its runs if there was more than
  // one, a line feed behind each. Empty: it did not run.
  std::string GetBundlerArgs() const;

  std::string stem_;   // no other test has it
  std::string image_;  // `stem_` and ".o"; there is no such file at first

 private:
  std::string folder_;
};

#endif  // TESTS_PROGRAM_HARNESS_H_
