// What operations of the library cost next to what else a program could call. Each row is a pair,
// "ROW/libbasic" and "ROW/peer", so that both are measured in one process, in turn.
//
// Files lie in the folder that BENCH_FOLDER names, a tmpfs; "." by default.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#ifdef HAS_ABSL
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#endif
#ifdef HAS_CLI11
#include <CLI/CLI.hpp>
#endif
#ifdef HAS_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include "file.h"
#include "lwlogger.h"
#include "misc.h"
#include "options.h"
#include "process.h"

namespace {

using benchmark::DoNotOptimize;
using std::string;

constexpr size_t kFileSize = 64 * 1024 * 1024;
constexpr size_t kHeldMemory = 1024 * 1024 * 1024;
constexpr size_t kPageSize = 4096;
constexpr size_t kHugePageSize = 2 * 1024 * 1024;

string InFolder(const string& name) {
  const char* folder = getenv("BENCH_FOLDER");
  return string(folder == nullptr ? "." : folder) + "/" + name;
}

// Registers both sides of a row. `fixed_iterations` is for bodies with an expensive preparation.
template <typename Own, typename Peer>
void AddRow(const string& row, Own own, Peer peer, int fixed_iterations = 0) {
  for (auto* added : {benchmark::RegisterBenchmark((row + "/libbasic").c_str(), own),
                      benchmark::RegisterBenchmark((row + "/peer").c_str(), peer)}) {
    added->UseRealTime();
    if (fixed_iterations > 0) {
      added->Iterations(fixed_iterations);
    }
  }
}

// Registers a row whose sides are single calls.
template <typename Own, typename Peer>
void AddCalls(const string& row, Own own, Peer peer) {
  const auto repeat = [](auto call) {
    return [call](benchmark::State& state) {
      for (auto _ : state) {
        call();
      }
    };
  };
  AddRow(row, repeat(own), repeat(peer));
}

template <typename... Args>
string PrintOnStack(const char* format, Args... args) {
  char buffer[512];
  snprintf(buffer, sizeof(buffer), format, args...);
  return buffer;
}

void AddStrings() {
  static uint64_t word = 0;
  AddCalls(
      "StrFormat, a 64-bit word",
      [] { DoNotOptimize(util::StrFormat("0x%016" PRIx64, word += 0x0123456789abcdef)); },
      [] { DoNotOptimize(PrintOnStack("0x%016" PRIx64, word += 0x0123456789abcdef)); });
  static const string path(200, 'p');
  AddCalls(
      "StrFormat, a message with a path of 200 bytes",
      [] { DoNotOptimize(util::StrFormat("Failed to read %s: %s\n", path.c_str(), "no file")); },
      [] { DoNotOptimize(PrintOnStack("Failed to read %s: %s\n", path.c_str(), "no file")); });
#ifdef HAS_ABSL
  static const string pieces = absl::StrReplaceAll(string(1000, '.'), {{".", "piece,"}});
  AddCalls(
      "SplitString, 1000 pieces",
      [] {
        std::vector<string> found;
        util::SplitString(pieces, ",", found);
        DoNotOptimize(found.data());
      },
      [] {
        std::vector<string> found = absl::StrSplit(pieces, ',', absl::SkipEmpty());
        DoNotOptimize(found.data());
      });
  static const string few = absl::StrReplaceAll(string(10000, '.'), {{".", "some @name@ text "}});
  static const string many = absl::StrReplaceAll(string(100000, '.'), {{".", "some @name@ text "}});
  AddCalls(
      "ReplaceAll, 10000 occurrences",
      [] { DoNotOptimize(util::ReplaceAll(few, "@name@", "a longer value")); },
      [] {
        DoNotOptimize(absl::StrReplaceAll(few, {{"@name@", "a longer value"}}));
      });
  AddCalls(
      "ReplaceAll, ten times as many",
      [] { DoNotOptimize(util::ReplaceAll(many, "@name@", "a longer value")); },
      [] { DoNotOptimize(util::ReplaceAll(few, "@name@", "a longer value")); });
#endif
}

void AddLog() {
#ifdef HAS_SPDLOG
  const auto own = [](benchmark::State& state) {
    util::LwLogger& logger = util::LwLogger::GetLogger();
    logger.SetLogDirectory(InFolder("."));
    logger.SetLogAssistInfo();
    logger.SetLogToFile();
    const string path = "/home/somebody/project/dev.o";
    for (auto _ : state) {
      LOG_INFO("Failed to read %s: %d\n", path, 7);
    }
  };
  const auto peer = [](benchmark::State& state) {
    const string file = InFolder("spdlog.log");
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(file, true);
    spdlog::logger logger("bench", sink);
    logger.set_pattern("[%Y%m%d_%H%M%S.%f %t %l %g:%#] %v");
    logger.flush_on(spdlog::level::trace);
    const string path = "/home/somebody/project/dev.o";
    for (auto _ : state) {
      logger.log({__FILE__, __LINE__, __func__}, spdlog::level::info, "Failed to read {}: {}", path,
                 7);
    }
    util::File::DeleteFile(file);
  };
  AddRow("Log line to a file, with header, flushed", own, peer);
#endif
}

// Has the file of a row made before the first turn, and nothing left of its copy after each.
const string& SourceFile() {
  static const string file = [] {
    const string made = InFolder("source");
    util::File(made).WriteText(string(kFileSize, 'x'), false);
    return made;
  }();
  return file;
}

template <typename Copy>
auto CopyRow(Copy copy) {
  return [copy](benchmark::State& state) {
    const string target = InFolder("target");
    const string& source = SourceFile();
    for (auto _ : state) {
      copy(target, source);
      state.PauseTiming();
      util::File::DeleteFile(target);
      state.ResumeTiming();
    }
  };
}

void ReadIntoHugePages(const string& file, size_t size) {
  auto* buffer = static_cast<char*>(aligned_alloc(kHugePageSize, size));
  madvise(buffer, size, MADV_HUGEPAGE);
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  for (size_t at = 0; at < size;) {
    const ssize_t count = pread(fd, buffer + at, size - at, static_cast<off_t>(at));
    if (count <= 0) {
      abort();
    }
    at += static_cast<size_t>(count);
  }
  close(fd);
  DoNotOptimize(buffer);
  free(buffer);
}

void AddFiles() {
  AddRow("File::CopyFile, 64 MiB", CopyRow([](const string& target, const string& source) {
           util::File::CopyFile(target, source);
         }),
         CopyRow([](const string& target, const string& source) {
           std::filesystem::copy_file(source, target);
         }));
  AddCalls(
      "File::ReadText, 64 MiB",
      [] {
        string text;
        util::File(SourceFile()).ReadText(text);
        DoNotOptimize(text.data());
      },
      [] {
        string text(kFileSize, '\0');
        std::ifstream(SourceFile()).read(text.data(), kFileSize);
        DoNotOptimize(text.data());
      });
  AddCalls(
      "File::ReadBinary, 64 MiB",
      [] {
        uint8_t* bytes = nullptr;
        util::File file(SourceFile());
        file.ReadBinary(bytes);
        DoNotOptimize(bytes);
      },
      [] { ReadIntoHugePages(SourceFile(), kFileSize); });
}

void AddOptions() {
#ifdef HAS_CLI11
  static const std::vector<const char*> argv = {"tool", "--verbose", "--create", "a.out", "--level",
                                                "info", "--files",   "a",        "b"};
  static const int argc = static_cast<int>(argv.size());
  const auto own = [] {
    util::Options options(argc, const_cast<const char**>(argv.data()));
    bool verbose = false;
    bool quiet = false;
    string create;
    string level;
    string target;
    std::vector<string> files;
    options.Parse("-v", "--verbose", "Print more.", nullptr, verbose, true);
    options.Parse("-q", "--quiet", "Print less.", nullptr, quiet, true);
    options.Parse("-c", "--create", "<FILE>", "File.", nullptr, nullptr, create, true);
    options.Parse("-l", "--level", "<NAME>", "Level.", nullptr, nullptr, level, true);
    options.Parse("-t", "--target", "<NAME>", "Target.", nullptr, nullptr, target, true);
    options.Parse("-f", "--files", "<FILES>", "Files.", nullptr, nullptr, files, true);
    DoNotOptimize(options.GetErrorOptions(true));
  };
  const auto peer = [] {
    CLI::App app("No description provided.");
    bool verbose = false;
    bool quiet = false;
    string create;
    string level;
    string target;
    std::vector<string> files;
    app.add_flag("-v,--verbose", verbose, "Print more.");
    app.add_flag("-q,--quiet", quiet, "Print less.");
    app.add_option("-c,--create", create, "File.");
    app.add_option("-l,--level", level, "Level.");
    app.add_option("-t,--target", target, "Target.");
    app.add_option("-f,--files", files, "Files.");
    app.parse(argc, argv.data());
    DoNotOptimize(app);
  };
  AddCalls("Options, 6 options and 8 arguments", own, peer);
#endif
}

// Starts a program with its output in a pipe, reads that to its end and awaits the program's.
void SpawnAndDrain(const char* program) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    abort();
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  char* const argv[] = {const_cast<char*>(program), nullptr};
  pid_t pid = 0;
  if (posix_spawnp(&pid, program, &actions, nullptr, argv, environ) != 0) {
    abort();
  }
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  char chunk[4096];
  while (read(ends[0], chunk, sizeof(chunk)) > 0) {
  }
  close(ends[0]);
  waitpid(pid, nullptr, 0);
}

template <typename Start>
auto ProcessRow(Start start, size_t held_memory) {
  return [start, held_memory](benchmark::State& state) {
    void* held = held_memory == 0 ? nullptr
                                  : mmap(nullptr, held_memory, PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    for (size_t at = 0; at < held_memory; at += kPageSize) {
      static_cast<char*>(held)[at] = 1;
    }
    for (auto _ : state) {
      start();
    }
    if (held != nullptr) {
      munmap(held, held_memory);
    }
  };
}

void AddProcesses() {
  const auto own = [] {
    util::Process process;
    DoNotOptimize(process.Execute("/bin/true", 0));
  };
  const auto peer = [] { SpawnAndDrain("/bin/true"); };
  AddRow("Process::Execute, /bin/true", ProcessRow(own, 0), ProcessRow(peer, 0));
  AddRow("Process::Execute, in a program that holds 1 GiB", ProcessRow(own, kHeldMemory),
         ProcessRow(peer, kHeldMemory), 100);
}

}  // namespace

int main(int argc, char** argv) {
  AddStrings();
  AddLog();
  AddFiles();
  AddOptions();
  AddProcesses();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  util::File::DeleteFile(InFolder("source"));
  return EXIT_SUCCESS;
}
