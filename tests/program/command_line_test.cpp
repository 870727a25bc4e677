#include <algorithm>
#include <regex>

#include "harness.h"

using CommandLineTest = ProgramTest;

const Result kNothingToDo = Error("Please specify embedded-fatbin or image3 option");

// expected/help.txt has lines that end in a blank; they are meant.
TEST_F(CommandLineTest, HelpAndVersionNeedNoInstallation) {
  std::filesystem::create_symlink(TAVROFUSE, "100%s");
  const std::string help = "Usage: ./100%s [options] \n" + ReadFile(EXPECTED_DIR "/help.txt");
  setenv("ROCM_PATH", "gone", 1);
  EXPECT_EQ(Run("./100%s --help --log-level=fatal"), Result(0, help, ""));
  const auto [status, version, err] = Run("./tavrofuse -log-level fatal -help -version");
  const std::regex line(R"(Version 0\.9\.0 \(\w{3} [ \d]\d \d{4} (\d\d:){2}\d\d [0-9a-f]{40}\)\n)");
  EXPECT_TRUE(status == 0 && err.empty() && std::regex_match(version, line)) << version;
}

TEST_F(CommandLineTest, WhatIsLeftOfTheCommandLineIsReportedAheadOfAnythingElse) {
  const auto expect_left = [&](const std::string& args, const std::string& left) {
    EXPECT_EQ(Run("./tavrofuse " + args), Error("Unsupported option '" + left + "'"));
  };
  expect_left("stray --help --version -x", "stray -x");
  expect_left("--log-level=fatal --100%s", "--100%s");
  expect_left("--create a --create -x", "--create -x");
  expect_left("--createx=a --64=1 --log-level= -Help", "--createx=a --64=1 --log-level= -Help");
  expect_left("--image3 a --link b", "b");
}

TEST_F(CommandLineTest, ShortNamesAndSeparateValuesDoTheSameAsLongNames) {
  std::string command =
      "stand_in/clang-offload-bundler -type=o -bundle-align=4096 "
      "-targets=host-x86_64-unknown-linux,hipv4-amdgcn-amd-amdhsa--a b -input=/dev/null -input=" +
      image_ + " -output=fat\n";
  const Result shown = {0, command, ""};
  // A blank in a value can't be quoted.
  std::replace(command.begin(), command.end(), ' ', '\n');
  EXPECT_EQ(Run("ROCM_PATH= HIP_CLANG_PATH= ./tavrofuse --create=a --create=fat -create=b --link"
                " --embedded-fatbin=inc '--offload-arch=a b' --rocm-path=. --clang-path=stand_in"
                " --verbose --device-c --64 '--cicc-cmdline=-a=b c' --cmdline=-d $image3"),
            shown);
  EXPECT_EQ(GetBundlerArgs(), command);
  EXPECT_EQ(Run("ROCM_PATH= HIP_CLANG_PATH= ./tavrofuse -create -64 fat -fatbin inc2 -link -v -c"
                " -offload-arch 'a b' -rocm-path . -clang-path stand_in --cicc-cmdline a"
                " -cmdline d -log-level debug -image3 x ${image3#*=}"),
            shown);
  EXPECT_EQ(GetBundlerArgs(), command);
  EXPECT_EQ(ReadFile("inc"), ReadFile("inc2"));
}

TEST_F(CommandLineTest, OptionsWinOverVariablesAndVariablesOverDefaults) {
  std::filesystem::create_directories("rocm/llvm");
  std::filesystem::create_symlink(STAND_IN_DIR, "rocm/llvm/bin");
  const auto expect_choice = [&](const std::string& command, const std::string& choice) {
    EXPECT_EQ(Run(command + " $image3"), kSuccess);
    const std::regex rest("/clang-offload-bundler\n[^]*amdhsa--|\n-input[^]*");
    EXPECT_EQ(std::regex_replace(GetBundlerArgs(), rest, " "), choice + " ") << command;
  };
  expect_choice("HIP_CLANG_PATH= ROCM_PATH=rocm ./tavrofuse", "rocm/llvm/bin gfx906");
  expect_choice("HIP_CLANG_PATH= ./tavrofuse --rocm-path=./rocm", "./rocm/llvm/bin gfx906");
  expect_choice("ROCM_PATH=rocm TAVROSM_TARGET= ./tavrofuse", "stand_in gfx906");
  expect_choice("HIP_CLANG_PATH=gone ./tavrofuse --clang-path=stand_in/", "stand_in/ gfx906");
  expect_choice("TAVROSM_TARGET=b ./tavrofuse", "stand_in b");
  expect_choice("TAVROSM_TARGET=b ./tavrofuse --offload-arch=a", "stand_in a");
}

TEST_F(CommandLineTest, WhatIsMissingIsNamedAndNotReplaced) {
  const Result rocm =
      Error("Missing rocm path, please specify using the ROCM_PATH environment variable");
  const Result clang =
      Error("Missing clang path, please specify using the HIP_CLANG_PATH environment variable");
  EXPECT_EQ(Run("./tavrofuse --rocm-path=gone --clang-path=gone"), rocm);
  EXPECT_EQ(Run("ROCM_PATH=gone ./tavrofuse"), rocm);
  EXPECT_EQ(Run("./tavrofuse --clang-path=gone"), clang);
  EXPECT_EQ(Run("HIP_CLANG_PATH=gone ./tavrofuse"), clang);
  EXPECT_EQ(Run("./tavrofuse --create=fat"), kNothingToDo);
  EXPECT_EQ(Run("./tavrofuse --clang-path=. $image3"), Error("clang-offload-bundler is not found"));
  const Result usual = std::filesystem::exists("/opt/rocm") ? kNothingToDo : rocm;
  EXPECT_EQ(Run("ROCM_PATH= ./tavrofuse"), usual);
  EXPECT_EQ(Run("unset ROCM_PATH; ./tavrofuse"), usual);
}

TEST_F(CommandLineTest, FirstImageDescriptionOfTheRightFormCounts) {
  const std::string bad =
      "./tavrofuse --create=fat --image3 '' kind=elf,f=1 s,kind=elf,f=2 kind=ptx,s,f=3"
      " kind=elf,s,4 kind=elf,s,f= kind=elf,s,f=5=6 kind=elf,s,f=7,8";
  EXPECT_EQ(Run(bad), kNothingToDo);
  EXPECT_EQ(Run(bad + " kind=elf,,any,path==9 kind=elf,sm=gfx906,file=dev.o"), kSuccess);
  EXPECT_NE(GetBundlerArgs().find("\n-input=9\n"), std::string::npos) << GetBundlerArgs();
}
