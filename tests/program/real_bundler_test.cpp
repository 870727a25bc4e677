#include "harness.h"

using RealBundlerTest = ProgramTest;

// Prints the fat binary that it holds.
const char kHostProgram[] = R"(#include <cstdio>
struct __fatBinC_Wrapper_t { int magic; int version; const void* data; void* unused; };
#include "inc"
int main() { fwrite(__fatDeviceText.data, 1, sizeof(fatbinData), stdout); })";

TEST_F(RealBundlerTest, ImageComesBackFromTheFatBinaryAndThatFromTheHostProgram) {
  WriteFile(image_, MakeBytes(5003));
  EXPECT_EQ(Run("./tavrofuse $image3 -clang-path llvm -create=fat -fatbin=inc && "
                "llvm/clang-offload-bundler -type=o -unbundle -input=fat -output=back "
                "-targets=hipv4-amdgcn-amd-amdhsa--gfx906"),
            kSuccess);
  EXPECT_TRUE(ReadFile("back") == ReadFile(image_));
  std::string fat_binary = ReadFile("fat");
  fat_binary.resize((fat_binary.size() + 7) / 8 * 8);
  WriteFile("host.cpp", kHostProgram);
  EXPECT_TRUE(Run("'" CXX_COMPILER "' -D__SKIP_INTERNAL_FATBINARY_HEADERS host.cpp && ./a.out") ==
              Result(0, fat_binary, ""));
}
