// What small operations of the support library cost, as the tool uses them.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "lwlogger.h"
#include "misc.h"
#include "options.h"

using std::string;
using std::vector;

namespace {

void Split(benchmark::State& state, const string& text) {
  for (auto _ : state) {
    vector<string> pieces;
    util::SplitString(text, ",", pieces);
    benchmark::DoNotOptimize(pieces.data());
  }
}
BENCHMARK_CAPTURE(Split, description, "kind=elf,sm=gfx906,file=dev.o")
    ->Name("SplitString, an image description");

// `options` with the declarations that a compiler driver's call needs, most of them not given.
void Declare(util::Options& options, vector<string>& images, string& file, bool& flag) {
  for (const char* name : {"-64", "-link", "-v", "-c", "-version", "-help"}) {
    options.Parse(name, string("-") + name, "Text of the help entry.", nullptr, flag, true);
  }
  for (const char* name :
       {"-create", "-fatbin", "-clang-path", "-rocm-path", "-offload-arch", "-cmdline"}) {
    options.Parse(name, string("-") + name, "<FILE>", "Text of the help entry.", nullptr, nullptr,
                  file, true);
  }
  options.Parse("-image3", "--image3", "<FILES>", "Text of the help entry.", nullptr, nullptr,
                images, true);
}

void ParseOptions(benchmark::State& state) {
  vector<const char*> argv = {"tavrofuse", "--64",    "--create=dev.fatbin",
                              "--fatbin",  "dev.inc", "--image3"};
  argv.resize(argv.size() + static_cast<size_t>(state.range(0)), "kind=elf,sm=gfx906,file=dev.o");
  for (auto _ : state) {
    util::Options options(static_cast<int>(argv.size()), argv.data());
    vector<string> images;
    string file;
    bool flag = false;
    Declare(options, images, file, flag);
    benchmark::DoNotOptimize(options.GetErrorOptions(true));
  }
}
BENCHMARK(ParseOptions)->Name("Options, 13 declared, images:")->Arg(1)->Arg(20000);

void LogSwitchedOff(benchmark::State& state) {
  const string path = "dev.o";
  for (auto _ : state) {
    LOG_DEBUG("%s: %s\n", path, util::GetEnvVar("PATH"));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(LogSwitchedOff)->Name("LOG_DEBUG, switched off");

}  // namespace
