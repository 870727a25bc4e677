// tavrofuse: has clang-offload-bundler make a fat binary from one device image, and writes a C
// include file that embeds this fat binary in a host object.

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
#include <memory>
#include <new>
#include <string>
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

constexpr uint64_t kBundlerSilenceLimit = 600000;  // milliseconds
constexpr int64_t kFatBinSizeLimit = INT_MAX;      // bytes
constexpr int kWordSize = 8;                       // bytes
constexpr int kWordsPerLine = 4;

// What the command line says, and what the run makes of it where it says nothing. The last four are
// accepted from drivers, without effect.
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

// The fat binary as 64-bit words; no data when none was made.
struct FatBinWords {
  std::unique_ptr<unsigned long long[]> data;
  int array_size = 0;
};

// A file that goes when its owner does, however that comes about. Empty name: no file.
class TemporaryFile {
 public:
  TemporaryFile() = default;
  ~TemporaryFile() {
    // `File::DeleteFile` would leave a dangling link.
    if (!name_.empty()) {
      remove(name_.c_str());
    }
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  void Own(const string& name) { name_ = name; }

 private:
  string name_;
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

// `value` stands; failing that, the environment variable; failing that, the default.
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

// The file of an image description such as "kind=elf,sm=gfx906,file=dev.o", which is read by
// position: compiler drivers may put anything into the second piece, and before the "=" of the
// third. Empty when the description is of another form.
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

// The first usable image decides; descriptions of another form are passed over.
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

// Chooses the name of the temporary fat binary. The image's name and the time are for people; the
// random digits keep runs from meeting, and others from preparing something under the name.
bool MakeTemporaryName(const string& input_file, string& create_file) {
  uint64_t digits = 0;
  if (getentropy(&digits, sizeof(digits)) != 0) {
    LOG_ERROR("Failed to make a temporary name: %s\n", strerror(errno));
    return false;
  }
  create_file = "/tmp/" + util::Path::GetFileName(input_file) + "-" + GetTimeMagic() + "-" +
                util::StrFormat("%016" PRIx64, digits) + ".fatbin";
  return true;
}

bool ExcuteCmd(const string& cmd_args, string& output) {
  util::Process process;
  const util::ProcessStatus status = process.Execute(cmd_args, kBundlerSilenceLimit);
  output = std::move(process.GetOutputString());
  return status != util::PROCESS_ERROR && status != util::PROCESS_TIMEOUT;
}

// Bundles the device image, behind an empty host part, into the fat binary `create_file`. The words
// of the command line can't be quoted: a blank in a value makes two words of it.
bool RunBundler(const string& clang_path, const string& input_file, const string& create_file,
                const string& offload_arch, bool verbose) {
  const string bundler_path = clang_path + "/clang-offload-bundler";
  if (!util::Path::IsPathExists(bundler_path)) {
    LOG_ERROR("clang-offload-bundler is not found\n");
    return false;
  }
  const string flags =
      "-type=o -bundle-align=4096"
      " -targets=host-x86_64-unknown-linux,"
      "hipv4-amdgcn-amd-amdhsa--" +
      offload_arch + " -input=/dev/null" + " -input=" + input_file + " -output=" + create_file;
  if (verbose) {
    LOG_INFO(bundler_path + " " + flags + "\n");
  }
  string output_str;
  const bool result = ExcuteCmd(bundler_path + " " + flags, output_str);
  if (!output_str.empty()) {
    LOG_INFO(output_str);
  }
  return result;
}

bool IsPipe(const string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

// Reads a file of `size` bytes; when that fails, the reason is the last error. A pipe would block,
// and a file that is shorter by now is not whole.
bool ReadWhole(const string& name, int64_t size, util::File& file, uint8_t*& bytes) {
  if (IsPipe(name)) {
    util::SetLastError("it is a pipe");
    return false;
  }
  const int64_t read_size = file.ReadBinary(bytes);
  if (read_size >= 0 && read_size != size) {
    util::SetLastError("its size has changed");
    return false;
  }
  return read_size >= 0;
}

void LogMallocFailure(int64_t size) { LOG_ERROR("Failed to malloc, size: %" PRId64 "\n", size); }

// Reads the fat binary back as words. Filler behind the last byte is zero, so that the same image
// gives the same include file anywhere and at any time.
bool ReadFatBin(const string& create_file, FatBinWords& words) {
  const int64_t file_size = util::File::GetFileSize(create_file);
  const int64_t word_count = (file_size + kWordSize - 1) / kWordSize;
  // Looked at ahead of the reading, which would be for nothing.
  if (file_size > kFatBinSizeLimit) {
    LogMallocFailure(word_count * kWordSize);
    return false;
  }
  util::File bin_file(create_file);
  uint8_t* binary = nullptr;
  if (!ReadWhole(create_file, file_size, bin_file, binary)) {
    LOG_ERROR("Failed to read %s: %s\n", create_file, util::GetLastError());
    return false;
  }
  words.data.reset(new (std::nothrow) unsigned long long[static_cast<size_t>(word_count)]);
  if (words.data == nullptr) {
    LogMallocFailure(word_count * kWordSize);
    return false;
  }
  util::PreferHugePages(words.data.get(), static_cast<size_t>(word_count) * kWordSize);
  if (word_count > 0) {
    words.data[static_cast<size_t>(word_count - 1)] = 0;
  }
  memcpy(words.data.get(), binary, static_cast<size_t>(file_size));
  words.array_size = static_cast<int>(word_count);
  return true;
}

constexpr char kQuad[] = "\".quad ";
constexpr char kQuadEnd[] = "\\n\"\n";
constexpr size_t kQuadSize = sizeof(kQuad) - 1;
constexpr size_t kQuadEndSize = sizeof(kQuadEnd) - 1;
constexpr size_t kWordTextSize = sizeof("0x0123456789abcdef,") - 1;

// The two hexadecimal digits of each byte.
class DigitTable {
 public:
  constexpr DigitTable() {
    for (size_t byte = 0; byte < 256; ++byte) {
      digits_[2 * byte] = "0123456789abcdef"[byte >> 4];
      digits_[2 * byte + 1] = "0123456789abcdef"[byte & 0xf];
    }
  }

  const char* Get(size_t byte) const { return digits_ + 2 * byte; }

 private:
  char digits_[512] = {};
};
constexpr DigitTable kDigitTable;

// Appends `".quad 0x...,0x...\n"` with `count` words, of which a line has room for four. All the
// time that the tool takes of its own on a large fat binary is spent here or in the kernel: a table
// of byte digits takes 3 ns a word where `StrFormat` takes 100, and a line made on the stack
// spares the text the zero-filling that growing it in place would cost.
void AppendDataLine(const unsigned long long* words, int count, string& text) {
  char line[kQuadSize + kWordsPerLine * kWordTextSize + kQuadEndSize];
  memcpy(line, kQuad, kQuadSize);
  char* end = line + kQuadSize;
  for (int i = 0; i < count; ++i) {
    *end++ = '0';
    *end++ = 'x';
    for (int shift = 56; shift >= 0; shift -= 8) {
      memcpy(end, kDigitTable.Get(words[i] >> shift & 0xff), 2);
      end += 2;
    }
    *end++ = ',';
  }
  // No comma follows the last word.
  memcpy(end - 1, kQuadEnd, kQuadEndSize);
  text.append(line, static_cast<size_t>(end - 1 - line) + kQuadEndSize);
}

// The size of the text that the data lines of `array_size` words make.
size_t GetDataTextSize(int array_size) {
  const auto word_count = static_cast<size_t>(array_size);
  const size_t line_count = (word_count + kWordsPerLine - 1) / kWordsPerLine;
  return word_count * kWordTextSize + line_count * (kQuadSize + kQuadEndSize - 1);
}

// Makes the text of the include file. It follows from the words and the form alone; no date, path
// or host name gets in.
string MakeIncludeText(const unsigned long long* data, int array_size, bool is_link) {
  const string section_name = is_link ? ".hip_dlink_fatbin" : ".hip_fatbin";
  const string head =
      "#ifndef __SKIP_INTERNAL_FATBINARY_HEADERS\n"
      "#include \"fatbinary_section.h\"\n#endif\n"
      "#define __CUDAFATBINSECTION  \".hipFatBinSegment\"\n"
      "#define __CUDAFATBINDATASECTION  \"" +
      section_name +
      "\"\n"
      "asm(\n\".section " +
      section_name +
      ", \\\"a\\\"\\n\"\n"
      "\".align 8\\n\"\n\"fatbinData:\\n\"\n";
  const string extern_c_begin = "#ifdef __cplusplus\nextern \"C\" {\n#endif\n";
  const string extern_c_end = "#ifdef __cplusplus\n}\n#endif\n";
  const string tail =
      "\".text\\n\");\n" + extern_c_begin + "extern const unsigned long long fatbinData[" +
      std::to_string(array_size) + "];\n" + extern_c_end + extern_c_begin +
      "static const __fatBinC_Wrapper_t __fatDeviceText "
      "__attribute__ ((aligned (8))) "
      "__attribute__ ((section (__CUDAFATBINSECTION)))=\n" +
      (is_link ? "\t{ 0x48495046, 2, fatbinData, (void**)__cudaPrelinkedFatbins };\n"
               : "\t{ 0x48495046, 1, fatbinData, 0 };\n") +
      extern_c_end;

  string text_contents;
  text_contents.reserve(head.size() + GetDataTextSize(array_size) + tail.size());
  util::PreferHugePages(text_contents.data(), text_contents.capacity());
  text_contents += head;
  for (int i = 0; i < array_size; i += kWordsPerLine) {
    AppendDataLine(data + i, std::min(array_size - i, kWordsPerLine), text_contents);
  }
  text_contents += tail;
  return text_contents;
}

bool WriteIncludeFile(const string& embedded_file, FatBinWords words, bool is_link) {
  const string text_contents = MakeIncludeText(words.data.get(), words.array_size, is_link);
  words.data.reset();
  util::File text_file(embedded_file);
  if (!text_file.WriteText(text_contents, false)) {
    LOG_ERROR("Failed to write %s: %s\n", embedded_file, util::GetLastError());
    return false;
  }
  return true;
}

// Bundles the image, if there is one, and embeds the fat binary, or the lack of one, if an include
// file is wanted.
bool CreateFatBin(const string& clang_path, const string& input_file, const string& create_file,
                  const string& embedded_file, const string& offload_arch, bool is_link,
                  bool verbose) {
  FatBinWords words;
  if (!create_file.empty() && !input_file.empty()) {
    if (!RunBundler(clang_path, input_file, create_file, offload_arch, verbose)) {
      return false;
    }
    if (embedded_file.empty()) {
      return true;
    }
    if (!ReadFatBin(create_file, words)) {
      return false;
    }
  }
  return WriteIncludeFile(embedded_file, std::move(words), is_link);
}

// One run: true when all that was asked for has been done. A request for the version or for help
// ends the process in here.
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

// Puts /dev/null where a standard stream is closed. The number would go to the next file that is
// opened, and log lines would land in it.
bool OpenStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) {
      return false;
    }
  }
  return true;
}

// Makes a write to a broken pipe, or past the limit on the size of files, fail like any other: the
// signals would end the run with the temporary file left behind. Handlers, as the bundler would
// inherit the ignoring of a signal.
void CatchWriteSignals() {
  for (const int signal_number : {SIGPIPE, SIGXFSZ}) {
    struct sigaction action = {};
    if (sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
      action.sa_handler = [](int) {};
      sigaction(signal_number, &action, nullptr);
    }
  }
}

// The last words of a run that an exception ended. Memory may be too short even for these.
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
  CatchWriteSignals();
  try {
    return DoMain(argc, argv) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    LogException(error.what());
  } catch (...) {
    LogException("unhandled exception");
  }
  return EXIT_FAILURE;
}
