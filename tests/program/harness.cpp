#include "harness.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>

bool operator==(const Result& a, const Result& b) {
  return a.status == b.status && a.out == b.out && a.err == b.err;
}

std::ostream& operator<<(std::ostream& stream, const Result& result) {
  return stream << "status " << result.status << "\nstdout: " << result.out
                << "\nstderr: " << result.err;
}

Result Error(const std::string& message) { return {1, "", "tavrofuse error: " + message + "\n"}; }

std::string ReadFile(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void WriteFile(const std::string& file, const std::string& bytes) { std::ofstream(file) << bytes; }

ProgramTest::ProgramTest() : folder_("/tmp/tavrofuse_test.XXXXXX") {
  umask(022);
  std::filesystem::current_path(std::string(mkdtemp(folder_.data())));
  stem_ = folder_.substr(folder_.rfind('/') + 1);
  image_ = stem_ + ".o";
  WriteFile(image_, "image");
  std::filesystem::create_symlink(TAVROFUSE, "tavrofuse");
  std::filesystem::create_symlink(STAND_IN_DIR, "stand_in");
  const std::string path = getenv("PATH");
  clearenv();
  setenv("PATH", path.c_str(), 1);
  setenv("image3", ("--image3=kind=elf,sm=gfx908,file=" + image_).c_str(), 1);
  setenv("ROCM_PATH", ".", 1);
  setenv("HIP_CLANG_PATH", "stand_in", 1);
  setenv("RECORD", "args", 1);
  setenv("MALLOC_PERTURB_", "85", 1);  // what nobody cleared is not zero by chance
}

ProgramTest::~ProgramTest() {
  std::filesystem::current_path("/");
  std::filesystem::remove_all(folder_);
}

Result ProgramTest::Run(const std::string& command) {
  std::filesystem::remove("args");
  const int status = std::system(("exec </dev/null >out 2>err; " + command).c_str());
  for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
    EXPECT_NE(entry.path().filename().string().substr(0, stem_.size() + 1), stem_ + "-")
        << "left in /tmp: " << entry << "\nby: " << command;
  }
  return {WEXITSTATUS(status), ReadFile("out"), ReadFile("err")};
}

std::string ProgramTest::GetBundlerArgs() const { return ReadFile("args"); }
