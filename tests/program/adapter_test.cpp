#include <cstdlib>

#include "harness.h"

// The adapter between two bundlers that print their arguments: `old` takes any target, `new` only
// such as have an environment part.
class AdapterTest : public ProgramTest {
 protected:
  AdapterTest() {
    std::filesystem::create_directory("adapter");
    std::filesystem::create_symlink(ADAPTER, "adapter/clang-offload-bundler");
    AddBundler("old", "");
    AddBundler("new", "case $* in *=host-x86_64-unknown-linux,*) exit 1 ;; esac\n");
    unsetenv("TAVROFUSE_BUNDLER");
    unsetenv("HIP_CLANG_PATH");
    unsetenv("ROCM_PATH");
  }

  static void AddBundler(const std::string& folder, const std::string& check) {
    const std::string file = folder + "/clang-offload-bundler";
    std::filesystem::create_directory(folder);
    WriteFile(file,
              "#!/bin/sh\n" + check + "printf '<%s>' " + folder + " \"$@\"\nexit ${STATUS-3}\n");
    std::filesystem::permissions(file, std::filesystem::perms::all);
  }

  Result RunAdapter(const std::string& environment, const std::string& arguments) {
    return Run(environment + " adapter/clang-offload-bundler " + arguments);
  }
};

TEST_F(AdapterTest, ChangesNothingButTheTargetOfTheHost) {
  const struct {
    const char* given;
    const char* passed_on;
  } rows[] = {
      {"-targets=host-x86_64-unknown-linux,hip-a", "<-targets=host-x86_64-unknown-linux-,hip-a>"},
      {"--targets=hip-a,host-x86_64-unknown-linux", "<--targets=hip-a,host-x86_64-unknown-linux->"},
      {"-targets host-x86_64-unknown-linux", "<-targets><host-x86_64-unknown-linux->"},
      {"-targets=host-x86_64-unknown-linux-gnu", "<-targets=host-x86_64-unknown-linux-gnu>"},
      {"-input=host-x86_64-unknown-linux", "<-input=host-x86_64-unknown-linux>"},
      {"-unbundle '' 'a  b' '*' -list", "<-unbundle><><a  b><*><-list>"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.given);
    EXPECT_EQ(RunAdapter("TAVROFUSE_BUNDLER=new/clang-offload-bundler", row.given),
              (Result{3, std::string("<new>") + row.passed_on, ""}));
  }
}

TEST_F(AdapterTest, RunsTheFirstBundlerThatIsThereExceptItself) {
  const struct {
    const char* environment;
    const char* used;
  } rows[] = {
      {"TAVROFUSE_BUNDLER=old/clang-offload-bundler HIP_CLANG_PATH=new", "<old>"},
      {"HIP_CLANG_PATH=old ROCM_PATH=gone", "<old>"},
      {"HIP_CLANG_PATH=gone PATH=new:old:$PATH", "<new>"},
      {"HIP_CLANG_PATH=adapter PATH=$PWD/adapter::old:$PATH", "<old>"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.environment);
    EXPECT_EQ(RunAdapter(row.environment, ""), (Result{3, row.used, ""}));
  }
}

TEST_F(AdapterTest, RefusesToRunItselfOrAWrapperOfItself) {
  const std::string program = "adapter/clang-offload-bundler";
  AddBundler("wrapper", program + " \"$@\"; exit $?\n");
  EXPECT_EQ(RunAdapter("TAVROFUSE_BUNDLER=" + program, ""),
            (Result{1, "",
                    program + ": error: TAVROFUSE_BUNDLER does not name a bundler: '" + program +
                        "'\n"}));
  EXPECT_EQ(RunAdapter("TAVROFUSE_BUNDLER=wrapper/clang-offload-bundler", ""),
            (Result{1, "",
                    program + ": error: 'wrapper/clang-offload-bundler' is no bundler, it runs "
                              "this adapter; TAVROFUSE_BUNDLER can name one\n"}));
}

TEST_F(AdapterTest, TellsWhichBundlerIsUsableAndHow) {
  const std::string old_folder = "old\nold/clang-offload-bundler\n";
  const std::string new_through_adapter = "adapter\nnew/clang-offload-bundler\n";
  setenv("STATUS", "0", 1);
  const struct {
    const char* environment;
    const char* folder;
    std::string found;
  } rows[] = {
      {"", "old", old_folder},
      {"", "new", new_through_adapter},
      {"TAVROFUSE_BUNDLER=new/clang-offload-bundler", "adapter", new_through_adapter},
      {"TAVROFUSE_BUNDLER=gone HIP_CLANG_PATH=gone PATH=old:$PATH", "", old_folder},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.environment) + " find " + row.folder);
    EXPECT_EQ(RunAdapter(row.environment, std::string("--tavrofuse-find ") + row.folder),
              (Result{0, row.found, ""}));
  }
  EXPECT_EQ(RunAdapter("", "--tavrofuse-find gone"),
            (Result{1, "",
                    "adapter/clang-offload-bundler: error: no clang-offload-bundler of LLVM 15 or "
                    "newer that works in\n  gone\n"}));
}
