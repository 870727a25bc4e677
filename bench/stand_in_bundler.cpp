// Takes the place of clang-offload-bundler at no cost: hard-links the file of the last -input= to
// the path of -output=. Ahead of that it prints as many bytes as STAND_IN_OUTPUT says.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Whole lines of text, in chunks as large as a pipe takes at once.
bool Print(size_t size) {
  constexpr char kLine[] = "a line of 32 bytes, with its end";
  constexpr size_t kLineSize = sizeof(kLine) - 1;
  static char chunk[65536];
  for (size_t at = 0; at < sizeof(chunk); at += kLineSize) {
    memcpy(chunk + at, kLine, kLineSize);
    chunk[at + kLineSize - 1] = '\n';
  }
  while (size > 0) {
    const ssize_t count = write(STDOUT_FILENO, chunk, std::min(size, sizeof(chunk)));
    if (count < 0) {
      return false;
    }
    size -= static_cast<size_t>(count);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const char* input = "";
  const char* output = "";
  for (int i = 1; i < argc; ++i) {
    if (strncmp(argv[i], "-input=", 7) == 0) {
      input = argv[i] + 7;
    } else if (strncmp(argv[i], "-output=", 8) == 0) {
      output = argv[i] + 8;
    }
  }
  const char* size = getenv("STAND_IN_OUTPUT");
  if (size != nullptr && !Print(strtoull(size, nullptr, 10))) {
    perror("write");
    return EXIT_FAILURE;
  }
  if (link(input, output) != 0) {
    perror(output);
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
