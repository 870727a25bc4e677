#ifndef TESTS_PROGRAM_HARNESS_H_
#define TESTS_PROGRAM_HARNESS_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

// What a command ended with and printed.
struct Result {
  int status;
  std::string out;
  std::string err;
};
bool operator==(const Result& a, const Result& b);
std::ostream& operator<<(std::ostream& stream, const Result& result);

const Result kSuccess = {0, "", ""};
Result Error(const std::string& message);

// The whole content of a file; empty when it can't be read.
std::string ReadFile(const std::string& file);
void WriteFile(const std::string& file, const std::string& bytes);

// Puts the test into a folder of its own, which goes at the end. In there, `tavrofuse` is the tool
// and `stand_in` the folder of a bundler that does what the variable BUNDLER says: by default, it
// copies the image. The tool uses that bundler unless told otherwise. The environment is made from
// scratch.
class ProgramTest : public testing::Test {
 protected:
  ProgramTest();
  ~ProgramTest() override;

  // Has the shell run a command, with `$image3` for the option that names the device image. A
  // temporary fat binary of this image that is left afterwards is a failure of the test.
  Result Run(const std::string& command);

  // The arguments of the bundler in the last run, a line feed after each; of all its runs if there
  // was more than one. Empty: it did not run.
  std::string GetBundlerArgs() const;

  std::string stem_;   // no other test has it
  std::string image_;  // `stem_` and ".o"; holds "image"

 private:
  std::string folder_;
};

#endif  // TESTS_PROGRAM_HARNESS_H_
