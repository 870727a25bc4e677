#ifndef LIBBASIC_SRC_INTERNAL_H_
#define LIBBASIC_SRC_INTERNAL_H_

#include <cstddef>
#include <memory>
#include <new>

// What the sources share and users don't need. It is not installed.

namespace util {

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
