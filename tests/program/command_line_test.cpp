#include <algorithm>
#include <regex>
#include <sstream>

#include "harness.h"

using CommandLineTest = ProgramTest;

const Result kNothingToDo = Error("Please specify embedded-fatbin or image3 option");

// expected/help.txt has lines that end in a blank; they are meant.
TEST_F(CommandLineTest, HelpAndVersionNeedNoInstallation) {
  std::filesystem::create_symlink(TAVROFUSE, "100%s");
  setenv("ROCM_PATH", "gone", 1);
  const std::string help = "Usage: ./100%s [options] \n" + ReadFile(EXPECTED_DIR "/help.txt");
  const Result shown = {0, help, ""};
  EXPECT_EQ(Run("./100%s --help --log-level=fatal"), shown);
  const Result version = Run("./tavrofuse -log-level fatal -help -version");
  EXPECT_EQ(version, (Result{0, version.out, ""}));
  const std::regex line(R"(Version 0\.9\.0 \(\w{3} [ \d]\d \d{4} (\d\d:){2}\d\d [0-9a-f]{40}\)\n)");
  EXPECT_TRUE(std::regex_match(version.out, line)) << version.out;
}

TEST_F(CommandLineTest, WhatIsLeftOfTheCommandLineIsReportedBeforeAnythingElse) {
  const struct {
    std::string args;
    std::string left;
  } kLines[] = {
      {"stray --help --version -x", "stray -x"},
      {"--log-level=fatal --100%s", "--100%s"},
      {"--create a --create -x", "--create -x"},
      {"--createx=a --64=1 --log-level= -Help", "--createx=a --64=1 --log-level= -Help"},
      {"--image3 a --link b", "b"},
  };
  for (const auto& row : kLines) {
    EXPECT_EQ(Run("./tavrofuse " + row.args), Error("Unsupported option '" + row.left + "'"))
        << row.args;
  }
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
  const struct {
    std::string command;
    std::string bundler_folder;
    std::string arch;
  } kChoices[] = {
      {"HIP_CLANG_PATH= ROCM_PATH=rocm ./tavrofuse", "rocm/llvm/bin", "gfx906"},
      {"HIP_CLANG_PATH= ./tavrofuse --rocm-path=./rocm", "./rocm/llvm/bin", "gfx906"},
      {"ROCM_PATH=rocm TAVROSM_TARGET= ./tavrofuse", "stand_in", "gfx906"},
      {"HIP_CLANG_PATH=gone ./tavrofuse --clang-path=stand_in/", "stand_in/", "gfx906"},
      {"TAVROSM_TARGET=b ./tavrofuse", "stand_in", "b"},
      {"TAVROSM_TARGET=b ./tavrofuse --offload-arch=a", "stand_in", "a"},
  };
  for (const auto& row : kChoices) {
    SCOPED_TRACE(row.command);
    EXPECT_EQ(Run(row.command + " $image3"), kSuccess);
    std::istringstream args(GetBundlerArgs());
    std::string words[4];
    for (std::string& word : words) {
      std::getline(args, word);
    }
    EXPECT_EQ(words[0], row.bundler_folder + "/clang-offload-bundler");
    EXPECT_EQ(words[3], "-targets=host-x86_64-unknown-linux,hipv4-amdgcn-amd-amdhsa--" + row.arch);
  }
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
  WriteFile("9", "image");
  EXPECT_EQ(Run(bad + " kind=elf,,any,path==9 kind=elf,sm=gfx906,file=dev.o"), kSuccess);
  EXPECT_NE(GetBundlerArgs().find("\n-input=9\n"), std::string::npos) << GetBundlerArgs();
}
