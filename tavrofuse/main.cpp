// tavrofuse: has clang-offload-bundler make a fat binary from one device image, and writes a C
// include file that embeds this fat binary in a host object.

#include <emmintrin.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "build_info.h"
#include "file.h"
#include "lwlogger.h"
#include "misc.h"
#include "options.h"
#include "path.h"
#include "process.h"

using std::string;
using std::vector;

namespace {

// ---------------------------------------------------------------------------------------------
// Options

// What the command line gives. The last four are accepted from drivers, without effect.
struct Settings {
  vector<string> image3_files;
  string create_file;
  string embedded_file;
  string rocm_path;
  string clang_path;
  string offload_arch;
  string log_level = "info";
  bool is_verbose = false;
  bool is_link = false;
  bool is_print_version = false;
  bool is_print_help = false;

  string cicc_cmdline;
  string ptx_options;
  bool is_relocatable = false;
  bool is_64bit = true;
};

bool DeclareOptions(util::Options& options, Settings& settings) {
  bool is_parsed = true;
  const auto flag = [&](const char* option, const char* long_option, bool& id, const char* desc) {
    is_parsed = is_parsed && options.Parse(option, long_option, desc, nullptr, id, true);
  };
  const auto value = [&](const char* option, const char* long_option, const char* val_desc,
                         auto& id, const char* desc) {
    is_parsed =
        is_parsed && options.Parse(option, long_option, val_desc, desc, nullptr, nullptr, id, true);
  };

  options.SetDescription("Create fat binary for tavro zpa.");
  options.SetGroupTitle("Options:");
  flag("-64", "--64", settings.is_64bit, "Specify that this was a 64bit compile.");
  value("", "--cicc-cmdline", "<ARGS>", settings.cicc_cmdline, "Specify the cicc cmdline.");
  value("-clang-path", "--clang-path", "<PATH>", settings.clang_path,
        "Specify the clang installation path.");
  value("-create", "--create", "<FILE>", settings.create_file,
        "Create file of given name that will contain fat binary.");
  value("-fatbin", "--embedded-fatbin", "<FILE>", settings.embedded_file,
        "Specify the name of an C include file that defines an embedded fat binary descriptor that "
        "will hold all 'internal' images. When this option is not used, all 'internal' images are "
        "ignored and no embedded fat binary file will be generated.");
  value("-image3", "--image3", "<FILES>", settings.image3_files,
        "Specify list of images with kind and sm that compiled them. Allowed keywords for this "
        "option: 'file','kind','sm'.");
  flag("-link", "--link", settings.is_link, "Specify that this contains linked code.");
  value("-offload-arch", "--offload-arch", "<ARCH>", settings.offload_arch,
        "Specify tavro zpa architecture.");
  value("-rocm-path", "--rocm-path", "<PATH>", settings.rocm_path,
        "Specify the rocm installation path.");
  flag("-v", "--verbose", settings.is_verbose, "Show commands to run and use verbose output.");
  value("-cmdline", "--cmdline", "<ARGS>", settings.ptx_options,
        "The -Xptxas command-line options with which the device code is compiled.");
  flag("-c", "--device-c", settings.is_relocatable,
       "Specify that this contains relocatable code. When used with --embedded-fatbin, puts fatbin "
       "in section for pre-linked code.");
  options.SetGroupTitle("Other Options:");
  value("-log-level", "--log-level", "<LEVEL>", settings.log_level,
        "Specify the log print level (info, debug).");
  flag("-version", "--version", settings.is_print_version, "Print version information and exit.");
  flag("-help", "--help", settings.is_print_help, "Print this message and exit.");
  return is_parsed;
}

// Declares the options and refuses a command line that holds anything else.
bool ParseCommandLine(util::Options& options, Settings& settings) {
  if (!DeclareOptions(options, settings)) {
    LOG_ERROR(util::GetLastError() + "\n");
    return false;
  }
  const string errmsg = options.GetErrorOptions(true);
  if (!errmsg.empty()) {
    LOG_ERROR(errmsg + "\n");
    return false;
  }
  return true;
}

string GetVersion() {
  return util::StrFormat("%d.%d.%d (%s %s %s)", TAVROFUSE_VERSION_MAJOR, TAVROFUSE_VERSION_MINOR,
                         TAVROFUSE_VERSION_PATCH, BUILD_INFO_DATE, BUILD_INFO_TIME,
                         BUILD_INFO_COMMIT);
}

// ---------------------------------------------------------------------------------------------
// Inputs

// Takes the environment variable if `value` is empty, and the default if that is empty too.
void ResolveDefault(string& value, const char* env_var, const string& default_value) {
  if (value.empty()) {
    value = util::GetEnvVar(env_var);
  }
  if (value.empty()) {
    value = default_value;
  }
}

bool ResolveRocmPath(Settings& settings) {
  ResolveDefault(settings.rocm_path, "ROCM_PATH", "/opt/rocm");
  if (!util::Path::IsPathExists(settings.rocm_path)) {
    LOG_ERROR("Missing rocm path, please specify using the ROCM_PATH environment variable\n");
    return false;
  }
  return true;
}

bool ResolveClangPath(Settings& settings) {
  ResolveDefault(settings.clang_path, "HIP_CLANG_PATH", settings.rocm_path + "/llvm/bin");
  if (!util::Path::IsPathExists(settings.clang_path)) {
    LOG_ERROR("Missing clang path, please specify using the HIP_CLANG_PATH environment variable\n");
    return false;
  }
  return true;
}

// Returns the file of an image description such as "kind=elf,sm=gfx906,file=dev.o", or an empty
// string if it has another form. It is read by position: compiler drivers may put anything into the
// second piece, and before the "=" of the third.
string GetImageFile(const string& description) {
  vector<string> strs;
  util::SplitString(description, ",", strs);
  if (strs.size() != 3 || strs[0] != "kind=elf") {
    return {};
  }
  const string binfile = strs[2];
  strs.clear();
  util::SplitString(binfile, "=", strs);
  return strs.size() == 2 ? strs[1] : string();
}

// Returns the file of the first usable image description, or an empty string. Others are ignored.
string PickImage(const vector<string>& image3_files) {
  for (const string& description : image3_files) {
    string input_file = GetImageFile(description);
    if (!input_file.empty()) {
      return input_file;
    }
  }
  return {};
}

string GetTimeMagic() {
  char buffer[128] = {};
  const time_t timestamp = time(nullptr);
  struct tm local_time = {};
  localtime_r(&timestamp, &local_time);
  snprintf(buffer, sizeof(buffer), "%x%x%x%x%x", static_cast<unsigned>(local_time.tm_mon + 1),
           static_cast<unsigned>(local_time.tm_mday), static_cast<unsigned>(local_time.tm_hour),
           static_cast<unsigned>(local_time.tm_min), static_cast<unsigned>(local_time.tm_sec));
  return buffer;
}

// Chooses the name of the temporary fat binary. The image's name, cut where the whole would be too
// long, and the time are for people. The random digits make the name unique, and keep others from
// preparing a file under it.
bool MakeTemporaryName(const string& input_file, string& create_file) {
  const string digits = util::GetRandomDigits();
  if (digits.empty()) {
    LOG_ERROR("Failed to make a temporary name: %s\n", util::GetLastError());
    return false;
  }
  const string name_end = "-" + GetTimeMagic() + "-" + digits + ".fatbin";
  const string stem = util::Path::GetFileName(input_file);
  create_file = "/tmp/" + stem.substr(0, NAME_MAX - name_end.size()) + name_end;
  return true;
}

// ---------------------------------------------------------------------------------------------
// Unfinished work, and signals that end the run

constexpr uint64_t kBundlerPatience = 800;  // milliseconds

// What a run must not leave behind. A signal handler may read it at any moment, so its owners enter
// their work here before they begin it, and remove it when it is finished.
struct Unfinished {
  std::atomic<util::Process*> bundler = nullptr;
  std::atomic<const char*> temporary_file = nullptr;
  std::atomic<util::AtomicFileWriter*> include_file = nullptr;
};
static_assert(std::atomic<void*>::is_always_lock_free);
Unfinished s_unfinished;

// Removes the temporary fat binary, or whatever the bundler left in its place. Async-signal-safe.
void RemoveTemporaryFile(const char* name) {
  // `File::DeleteFile` ignores a dangling link.
  remove(name);
}

// Stops the bundler, removes what is unfinished, and ends the process by the same signal, so that
// shells and build systems see what happened.
void EndBySignal(int signal_number, siginfo_t* info, void* /*context*/) {
  // The kernel's signals for a write to a broken pipe, or past the limit on file sizes: the write
  // fails like any other.
  if ((signal_number == SIGPIPE || signal_number == SIGXFSZ) && info->si_pid == getpid()) {
    return;
  }
  util::Process* bundler = s_unfinished.bundler;
  if (bundler != nullptr) {
    bundler->Stop(kBundlerPatience);
  }
  const char* temporary_file = s_unfinished.temporary_file;
  if (temporary_file != nullptr) {
    RemoveTemporaryFile(temporary_file);
  }
  util::AtomicFileWriter* include_file = s_unfinished.include_file;
  if (include_file != nullptr) {
    include_file->RemoveDraft();
  }
  signal(signal_number, SIG_DFL);
  raise(signal_number);
  sigset_t unblocked;
  sigemptyset(&unblocked);
  sigaddset(&unblocked, signal_number);
  sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
  _exit(128 + signal_number);  // reached as process 1 of a container, which default actions spare
}

bool EndsByDefault(int signal_number) {
  constexpr int others[] = {SIGCHLD, SIGCONT, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH};
  return std::find(std::begin(others), std::end(others), signal_number) == std::end(others);
}

// Handles all signals that end a process, unless the caller has this run ignore them. SIGPIPE and
// SIGXFSZ too are not ignored here: the bundler would inherit that.
void HandleSignals() {
  static char stack[64 * 1024];  // the usual one may have overflowed
  stack_t alternate = {};
  alternate.ss_sp = stack;
  alternate.ss_size = sizeof(stack);
  sigaltstack(&alternate, nullptr);
  struct sigaction action = {};
  action.sa_sigaction = EndBySignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigfillset(&action.sa_mask);
  sigset_t former_mask;
  sigprocmask(SIG_SETMASK, &action.sa_mask, &former_mask);
  for (int signal_number = 1; signal_number <= SIGRTMAX; ++signal_number) {
    struct sigaction former_action;
    if (EndsByDefault(signal_number) && sigaction(signal_number, &action, &former_action) == 0 &&
        former_action.sa_handler != SIG_DFL) {
      sigaction(signal_number, &former_action, nullptr);
    }
  }
  sigprocmask(SIG_SETMASK, &former_mask, nullptr);
  // While this signal is ignored, nobody can learn how the bundler ended.
  signal(SIGCHLD, SIG_DFL);
}

// Removes the temporary fat binary when it goes out of scope. Without a name, there is none.
class TemporaryFile {
 public:
  TemporaryFile() = default;
  ~TemporaryFile() {
    if (!name_.empty()) {
      RemoveTemporaryFile(name_.c_str());
      s_unfinished.temporary_file = nullptr;
    }
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  void Own(const string& name) {
    name_ = name;
    s_unfinished.temporary_file = name_.c_str();
  }

 private:
  string name_;
};

// ---------------------------------------------------------------------------------------------
// Bundling

constexpr uint64_t kBundlerSilenceLimit = 600000;  // milliseconds

// Runs one command, and stops it if an exception ends the run first.
class BundlerProcess {
 public:
  BundlerProcess() { s_unfinished.bundler = &process_; }
  ~BundlerProcess() {
    process_.Stop(kBundlerPatience);
    s_unfinished.bundler = nullptr;
  }
  BundlerProcess(const BundlerProcess&) = delete;
  BundlerProcess& operator=(const BundlerProcess&) = delete;

  util::ProcessStatus Execute(const string& cmd_args) {
    util::Process::AdoptOrphans();  // a shell script's commands, for example
    // Not `Process::Execute`: the caller may have left children of its own to this process.
    const util::ProcessStatus status = process_.Start(cmd_args);
    return status == util::PROCESS_SUCCESS ? process_.Wait(kBundlerSilenceLimit) : status;
  }

  string& GetOutputString() { return process_.GetOutputString(); }
  bool IsKilled() const { return process_.GetEndSignal() == SIGKILL; }

 private:
  util::Process process_;
};

bool ExcuteCmd(const string& cmd_args, string& output, bool& is_killed) {
  BundlerProcess process;
  const util::ProcessStatus status = process.Execute(cmd_args);
  output = std::move(process.GetOutputString());
  is_killed = process.IsKilled();
  return status == util::PROCESS_SUCCESS;
}

// What tells one state of a file from another; zeros if there is no file.
auto GetFileState(const string& name) {
  struct stat status = {};
  stat(name.c_str(), &status);
  return std::make_tuple(status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec,
                         status.st_ctim.tv_nsec);
}

// Bundles the device image, after an empty host part, into the fat binary `create_file`. The words
// of the command line can't be quoted: a blank in a value makes two words of it.
bool RunBundler(const string& bundler_path, const string& input_file, const string& create_file,
                const string& offload_arch, bool verbose) {
  const string flags =
      "-type=o -bundle-align=4096"
      " -targets=host-x86_64-unknown-linux,"
      "hipv4-amdgcn-amd-amdhsa--" +
      offload_arch + " -input=/dev/null" + " -input=" + input_file + " -output=" + create_file;
  if (verbose) {
    LOG_INFO(bundler_path + " " + flags + "\n");
  }
  const auto older_state = GetFileState(create_file);
  string output_str;
  bool is_killed = false;
  const bool result = ExcuteCmd(bundler_path + " " + flags, output_str, is_killed);
  if (!output_str.empty()) {
    LOG_INFO(output_str);
  }
  if (result && is_killed && util::Path::IsPathExists(create_file) &&
      GetFileState(create_file) == older_state) {
    LOG_ERROR("Failed to read %s: the bundler was killed before it wrote it\n", create_file);
    return false;
  }
  return result;
}

// Refuses an output that is the image. Some bundlers would destroy it and report success.
bool CheckOutput(const string& output, const string& image) {
  if (util::Path::IsNormalFile(image) && util::Path::IsSameFile(output, image)) {
    LOG_ERROR("Failed to write %s: it is the device image\n", output);
    return false;
  }
  return true;
}

// Bundles the image into `create_file`, unless there is no bundler or an output is the image.
bool Bundle(const string& clang_path, const string& input_file, const string& create_file,
            const string& embedded_file, const string& offload_arch, bool verbose) {
  const string bundler_path = clang_path + "/clang-offload-bundler";
  if (!util::Path::IsPathExists(bundler_path)) {
    LOG_ERROR("clang-offload-bundler is not found\n");
    return false;
  }
  return CheckOutput(create_file, input_file) && CheckOutput(embedded_file, input_file) &&
         RunBundler(bundler_path, input_file, create_file, offload_arch, verbose);
}

// ---------------------------------------------------------------------------------------------
// Include file

constexpr int64_t kFatBinSizeLimit = INT_MAX;  // bytes
constexpr size_t kWordSize = 8;                // bytes
constexpr size_t kWordsPerLine = 4;
// A block and its text stay in the processor's cache from the reading to the writing.
constexpr size_t kLinesPerBlock = 2048;
constexpr size_t kBlockSize = kLinesPerBlock * kWordsPerLine * kWordSize;

// The two forms: for an image as it was compiled, and for linked code (--link).
struct Form {
  const char* section_name;
  int version;
  const char* prelinked;
};
constexpr Form kForms[] = {
    {".hip_fatbin", 1, "0"},
    {".hip_dlink_fatbin", 2, "(void**)__cudaPrelinkedFatbins"},
};

// The include file before its data lines: twice the section's name.
constexpr char kHead[] = R"(#ifndef __SKIP_INTERNAL_FATBINARY_HEADERS
#include "fatbinary_section.h"
#endif
#define __CUDAFATBINSECTION  ".hipFatBinSegment"
#define __CUDAFATBINDATASECTION  "%s"
asm(
".section %s, \"a\"\n"
".align 8\n"
"fatbinData:\n"
)";

// A data line holds up to four words. With fewer, it is cut after the last one's digits.
constexpr char kDataLine[] =
    R"(".quad 0x0123456789abcdef,0x0123456789abcdef,0x0123456789abcdef,0x0123456789abcdef\n"
)";
constexpr size_t kDataLineSize = sizeof(kDataLine) - 1;
constexpr size_t kQuadSize = sizeof(R"(".quad )") - 1;
constexpr size_t kWordTextSize = sizeof("0x0123456789abcdef,") - 1;
constexpr char kDataLineEnd[] = R"(\n"
)";
constexpr size_t kDataLineEndSize = sizeof(kDataLineEnd) - 1;

// The include file after its data lines: number of words, version, fourth member of the descriptor.
constexpr char kTail[] = R"(".text\n");
#ifdef __cplusplus
extern "C" {
#endif
extern const unsigned long long fatbinData[%d];
#ifdef __cplusplus
}
#endif
#ifdef __cplusplus
extern "C" {
#endif
static const __fatBinC_Wrapper_t __fatDeviceText __attribute__ ((aligned (8))) __attribute__ ((section (__CUDAFATBINSECTION)))=
	{ 0x48495046, %d, fatbinData, %s };
#ifdef __cplusplus
}
#endif
)";

// The fat binary, read in blocks. Without `Open` there is no data.
class FatBin {
 public:
  // Reads the first block. What can't be read at all fails here, and is logged.
  bool Open(const string& name) {
    name_ = name;
    struct stat status;
    if (stat(name.c_str(), &status) != 0) {
      util::SetLastError("stat64: %s", strerror(errno));
      return Fail();
    }
    size_ = status.st_size;
    if (size_ > kFatBinSizeLimit) {
      LOG_ERROR("Failed to malloc, size: %" PRId64 "\n", GetWordCount() * int64_t{kWordSize});
      return false;
    }
    if (!S_ISREG(status.st_mode)) {
      util::SetLastError(S_ISDIR(status.st_mode)    ? "read file: Is a directory"
                         : S_ISFIFO(status.st_mode) ? "it is a pipe"
                                                    : "it is not a regular file");
      return Fail();
    }
    return reader_.Open(name) ? ReadBlock() : Fail();
  }

  // Reads the next block, which is empty at the end. A failure is logged.
  bool ReadBlock() {
    const size_t size = std::min(kBlockSize, static_cast<size_t>(size_ - offset_));
    if (!reader_.Read(block_, size, block_size_)) {
      return Fail();
    }
    offset_ += static_cast<int64_t>(block_size_);
    const bool is_last = size > 0 && offset_ == size_;
    if (block_size_ < size || (is_last && reader_.GetSize() != size_)) {
      util::SetLastError("its size has changed");
      return Fail();
    }
    // Zero-pads the last word so that the output is reproducible.
    memset(block_ + block_size_, 0, GetBlockWordCount() * kWordSize - block_size_);
    return true;
  }

  int64_t GetWordCount() const { return (size_ + int64_t{kWordSize} - 1) / int64_t{kWordSize}; }
  const unsigned char* GetBlock() const { return block_; }
  size_t GetBlockWordCount() const { return (block_size_ + kWordSize - 1) / kWordSize; }

 private:
  bool Fail() const {
    LOG_ERROR("Failed to read %s: %s\n", name_, util::GetLastError());
    return false;
  }

  // Static, so that the size of the stack doesn't matter. Reading into an aligned block is twice as
  // fast.
  alignas(64) static inline unsigned char block_[kBlockSize];

  util::FileReader reader_;
  string name_;
  int64_t size_ = 0;
  int64_t offset_ = 0;
  size_t block_size_ = 0;
};

// The include file, which appears under its name when it is complete. Failures are logged.
class IncludeFile {
 public:
  explicit IncludeFile(const string& name) : name_(name) { s_unfinished.include_file = &writer_; }
  ~IncludeFile() {
    writer_.RemoveDraft();
    s_unfinished.include_file = nullptr;
  }
  IncludeFile(const IncludeFile&) = delete;
  IncludeFile& operator=(const IncludeFile&) = delete;

  bool Open() { return writer_.Open(name_, ".tavrofuse-") || Fail(); }
  bool Write(const void* text, size_t size) { return writer_.Write(text, size) || Fail(); }
  bool Write(const string& text) { return Write(text.data(), text.size()); }
  bool Commit() { return writer_.Commit() || Fail(); }

 private:
  bool Fail() const {
    LOG_ERROR("Failed to write %s: %s\n", name_, util::GetLastError());
    return false;
  }

  util::AtomicFileWriter writer_;
  string name_;
};

// Writes the sixteen digits of a little-endian word, highest digit first. With eight bytes at a
// time, formatting takes a tenth of what writing the text takes.
void FormatWord(const unsigned char* bytes, char* digits) {
  uint64_t word = 0;
  memcpy(&word, bytes, kWordSize);
  const __m128i low_half = _mm_set1_epi8(0x0f);
  const __m128i value = _mm_cvtsi64_si128(static_cast<int64_t>(__builtin_bswap64(word)));
  const __m128i low = _mm_and_si128(value, low_half);
  const __m128i high = _mm_and_si128(_mm_srli_epi16(value, 4), low_half);
  const __m128i halves = _mm_unpacklo_epi8(high, low);
  const __m128i is_letter = _mm_cmpgt_epi8(halves, _mm_set1_epi8(9));
  const __m128i letter_offset = _mm_and_si128(is_letter, _mm_set1_epi8('a' - '0' - 10));
  const __m128i text = _mm_add_epi8(_mm_add_epi8(halves, _mm_set1_epi8('0')), letter_offset);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(digits), text);
}

// Writes the digits of a block into the data lines of `text`, and returns the size of the lines.
// Everything else is in `text` already.
size_t FormatBlock(const unsigned char* block, size_t word_count, char* text) {
  const unsigned char* words = block;
  char* line = text;
  for (size_t i = 0; i < word_count; i += kWordsPerLine) {
    // Words that a last line doesn't have are cut off below.
    for (size_t k = 0; k < kWordsPerLine; ++k) {
      FormatWord(words + k * kWordSize, line + kQuadSize + k * kWordTextSize + 2);
    }
    words += kWordsPerLine * kWordSize;
    line += kDataLineSize;
  }
  const size_t last_count = word_count % kWordsPerLine;
  if (last_count > 0) {
    char* end = line - kDataLineSize + kQuadSize + last_count * kWordTextSize - 1;  // no comma
    memcpy(end, kDataLineEnd, kDataLineEndSize);
    line = end + kDataLineEndSize;
  }
  return static_cast<size_t>(line - text);
}

bool WriteDataLines(FatBin& fat_bin, IncludeFile& include_file) {
  static char text[kLinesPerBlock * kDataLineSize];
  const size_t line_count = (fat_bin.GetBlockWordCount() + kWordsPerLine - 1) / kWordsPerLine;
  for (size_t i = 0; i < line_count; ++i) {
    memcpy(text + i * kDataLineSize, kDataLine, kDataLineSize);
  }
  for (size_t count; (count = fat_bin.GetBlockWordCount()) > 0;) {
    const size_t size = FormatBlock(fat_bin.GetBlock(), count, text);
    if (!include_file.Write(text, size) || !fat_bin.ReadBlock()) {
      return false;
    }
  }
  return true;
}

// The content follows from the fat binary and the form alone. No date, path or host name gets in.
bool WriteIncludeFile(const string& embedded_file, FatBin& fat_bin, bool is_link) {
  const Form& form = kForms[is_link ? 1 : 0];
  const string head = util::StrFormat(kHead, form.section_name, form.section_name);
  const string tail = util::StrFormat(kTail, static_cast<int>(fat_bin.GetWordCount()), form.version,
                                      form.prelinked);
  IncludeFile include_file(embedded_file);
  return include_file.Open() && include_file.Write(head) && WriteDataLines(fat_bin, include_file) &&
         include_file.Write(tail) && include_file.Commit();
}

// ---------------------------------------------------------------------------------------------
// The run

// Bundles the image, if there is one. Writes the include file, if one is wanted: with the fat
// binary, or without data if there is no image.
bool CreateFatBin(const string& clang_path, const string& input_file, const string& create_file,
                  const string& embedded_file, const string& offload_arch, bool is_link,
                  bool verbose) {
  FatBin fat_bin;
  if (!create_file.empty() && !input_file.empty()) {
    if (!Bundle(clang_path, input_file, create_file, embedded_file, offload_arch, verbose)) {
      return false;
    }
    if (embedded_file.empty()) {
      return true;
    }
    if (!fat_bin.Open(create_file)) {
      return false;
    }
  }
  return WriteIncludeFile(embedded_file, fat_bin, is_link);
}

// Returns whether all that was asked for has been done. A request for the version or for help ends
// the process in here.
bool DoMain(int argc, const char** argv) {
  util::SetLogProcessName();
  util::Options options(argc, argv);
  Settings settings;
  if (!ParseCommandLine(options, settings)) {
    return false;
  }
  if (settings.is_print_version) {
    LOG_INFO("Version %s\n", GetVersion());
    exit(EXIT_SUCCESS);
  }
  if (settings.is_print_help) {
    LOG_INFO(options.GetHelpInfo());
    exit(EXIT_SUCCESS);
  }
  util::SetLogLevel(settings.log_level);

  if (!ResolveRocmPath(settings) || !ResolveClangPath(settings)) {
    return false;
  }
  ResolveDefault(settings.offload_arch, "TAVROSM_TARGET", "gfx906");
  const string input_file = PickImage(settings.image3_files);
  if (settings.embedded_file.empty() && input_file.empty()) {
    LOG_ERROR("Please specify embedded-fatbin or image3 option\n");
    return false;
  }
  TemporaryFile temporary_file;
  if (settings.create_file.empty() && !input_file.empty()) {
    if (!MakeTemporaryName(input_file, settings.create_file)) {
      return false;
    }
    temporary_file.Own(settings.create_file);
  }
  return CreateFatBin(settings.clang_path, input_file, settings.create_file, settings.embedded_file,
                      settings.offload_arch, settings.is_link, settings.is_verbose);
}

// Opens /dev/null for each standard stream that is closed. Otherwise the next file that is opened
// would get its number, and log lines would go into that file.
bool OpenStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) {
      return false;
    }
  }
  return true;
}

// Logs what ended the run. Memory may be too short even for that.
void LogException(const char* what) {
  try {
    LOG_ERROR(string(what));
  } catch (...) {
    fputs(what, stderr);
  }
}

}  // namespace

int main(int argc, const char** argv) {
  if (!OpenStandardStreams()) {
    return EXIT_FAILURE;
  }
  HandleSignals();
  try {
    return DoMain(argc, argv) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    LogException(error.what());
  } catch (...) {
    LogException("unhandled exception");
  }
  return EXIT_FAILURE;
}
