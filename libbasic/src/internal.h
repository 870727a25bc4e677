#ifndef LIBBASIC_SRC_INTERNAL_H_
#define LIBBASIC_SRC_INTERNAL_H_

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>

// What the sources share and users don't need. It is not installed.

namespace util {

constexpr int64_t kMillisecondsPerSecond = 1000;
constexpr int64_t kMicrosecondsPerSecond = 1000000;
constexpr int64_t kNanosecondsPerMicrosecond = 1000;
constexpr int64_t kNanosecondsPerMillisecond = 1000000;

// Appends what `StrFormat` would return.
void AppendFormat(std::string& text, const char* format, va_list ap)
    __attribute__((format(printf, 2, 0)));

// Held while the C library converts a time to local time. It has a lock of its own, which a child
// of `fork` might never get.
std::mutex& GetTimeLock();

// Appends what `GetSystemTime` would return.
void AppendSystemTime(std::string& text, bool with_usec);

// Appends bytes as text: in each chunk of `chunk_size` bytes, a zero byte drops the rest.
inline void AppendChunks(const char* bytes, size_t size, size_t chunk_size, std::string& text) {
  for (size_t begin = 0; begin < size; begin += chunk_size) {
    const char* chunk = bytes + begin;
    text.append(chunk, strnlen(chunk, std::min(chunk_size, size - begin)));
  }
}

// Asks the kernel for huge pages under a large buffer that is about to be filled for the first
// time: faulting in hundreds of megabytes page by page can cost more than the work on them. Best
// effort: a buffer of less than 4 MiB is ignored.
void PreferHugePages(void* buffer, size_t size);

// The kernel copies to this alignment twice as fast as to the one of `malloc`.
constexpr size_t kReadAlignment = 64;

// Memory for reading in blocks: a large block, or a small one if memory is short.
class ReadBuffer {
 public:
  char* Get() { return large_ == nullptr ? small_ : large_->bytes; }
  // In bytes, a multiple of 4096.
  size_t GetSize() const { return large_ == nullptr ? sizeof(small_) : sizeof(large_->bytes); }

 private:
  // Large enough that system calls don't count, small enough for a processor's cache, and too large
  // for the stack of a thread.
  struct alignas(kReadAlignment) Large {
    char bytes[64 * 1024];
  };
  std::unique_ptr<Large> large_{new (std::nothrow) Large};
  char small_[4096] = {};
};

}  // namespace util

#endif  // LIBBASIC_SRC_INTERNAL_H_
