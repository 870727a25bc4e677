// What small operations of the support library cost, as the tool uses them.

#include <benchmark/benchmark.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "lwlogger.h"
#include "misc.h"
#include "options.h"

using std::string;
using std::vector;

namespace {

void FormatWord(benchmark::State& state) {
  uint64_t word = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(util::StrFormat("0x%016" PRIx64, word += 0x0123456789abcdef));
  }
}
BENCHMARK(FormatWord)->Name("StrFormat, a 64-bit word");

// The limit for anything that goes through the C library's formatting.
void PrintWord(benchmark::State& state) {
  uint64_t word = 0;
  char buffer[32];
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        snprintf(buffer, sizeof(buffer), "0x%016" PRIx64, word += 0x0123456789abcdef));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(PrintWord)->Name("snprintf, a 64-bit word");

void FormatPath(benchmark::State& state) {
  const string path(200, 'p');
  for (auto _ : state) {
    benchmark::DoNotOptimize(util::StrFormat("Failed to read %s: %s\n", path.c_str(), "no file"));
  }
}
BENCHMARK(FormatPath)->Name("StrFormat, a message with a 200 byte path");

void Split(benchmark::State& state, const string& text) {
  for (auto _ : state) {
    vector<string> pieces;
    util::SplitString(text, ",", pieces);
    benchmark::DoNotOptimize(pieces.data());
  }
}
BENCHMARK_CAPTURE(Split, description, "kind=elf,sm=gfx906,file=dev.o")
    ->Name("SplitString, an image description");
BENCHMARK_CAPTURE(Split, many, util::ReplaceAll(string(1000, '.'), ".", "piece,"))
    ->Name("SplitString, 1000 pieces");

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
