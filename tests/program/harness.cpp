#include "harness.h"

#include <glob.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>

Result Error(const std::string& message) { return {1, "", "tavrofuse error: " + message + "\n"}; }

std::string ReadFile(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void WriteFile(const std::string& file, const std::string& bytes) { std::ofstream(file) << bytes; }

std::string MakeBytes(size_t size) {
  std::mt19937_64 random(size);
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
  return bytes;
}

ProgramTest::ProgramTest() : folder_("/tmp/tavrofuse_test.XXXXXX") {
  std::filesystem::current_path(std::string(mkdtemp(folder_.data())));
  stem_ = folder_.substr(folder_.rfind('/') + 1);
  image_ = stem_ + ".o";
  std::filesystem::create_symlink(TAVROFUSE, "tavrofuse");
  std::filesystem::create_symlink(STAND_IN_DIR, "stand_in");
  std::filesystem::create_symlink(BUNDLER_DIR, "llvm");
  setenv("image3", ("--image3=kind=elf,sm=gfx908,file=" + image_).c_str(), 1);
  setenv("ROCM_PATH", ".", 1);
  setenv("HIP_CLANG_PATH", "stand_in", 1);
  unsetenv("TAVROSM_TARGET");
  setenv("BUNDLER_RECORD", "args", 1);
  setenv("MALLOC_PERTURB_", "85", 1);  // what nobody cleared is not zero by chance
}

ProgramTest::~ProgramTest() {
  std::filesystem::current_path("/");
  std::filesystem::remove_all(folder_);
}

Result ProgramTest::Run(const std::string& command) {
  std::filesystem::remove("args");
  const int status = std::system(("exec </dev/null >out 2>err; " + command).c_str());
  glob_t left = {};
  EXPECT_EQ(glob(("/tmp/" + stem_ + "-*").c_str(), 0, nullptr, &left), GLOB_NOMATCH);
  globfree(&left);
  return {WEXITSTATUS(status), ReadFile("out"), ReadFile("err")};
}

std::string ProgramTest::GetBundlerArgs() const {
  std::string args = ReadFile("args");
  std::replace(args.begin(), args.end(), '\0', '\n');
  return args;
}
