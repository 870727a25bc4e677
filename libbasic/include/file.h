#ifndef LIBBASIC_FILE_H_
#define LIBBASIC_FILE_H_

#include <cstdint>
#include <cstdio>
#include <string>

/// \file
/// Whole-file operations, reading and writing in blocks, and the owner of an open stream or
/// descriptor.

namespace util {

/// Whole-file operations on one path. The result of an operation shows whether it failed; the
/// last-error text of `misc.h` then has the reason, with the system's words for the last "%s":
///
/// - "open file: %s": the file can't be opened. `CopyFile` says "open file '%s': %s" with the path.
///   For an empty path the words are "invalid input paramters".
/// - "read file: %s": reading failed. A read error is never taken for the end of a file.
/// - "write file: %s": not all bytes could be written; a full disk, say.
/// - "close file: %s": the file could not be closed, so its content is not known to be safe.
///
/// Writing creates a missing file. If it fails, the file keeps what was written before. An object
/// is used by one thread at a time; the static operations by any.
class File {
 public:
  /// Keeps a copy of the path. The file system is not touched.
  explicit File(const std::string& file);

  /// Frees the buffer of `ReadBinary`.
  ~File();

  File(const File&) = delete;
  File& operator=(const File&) = delete;

  /// Reads the file as text, in chunks of 4095 bytes: a zero byte drops the rest of its chunk.
  /// \param[in,out] text  The text is appended; what is there stays.
  /// \return False when the file can't be opened or read; `text` then ends with what was read
  ///         before the failure, part of a chunk included.
  bool ReadText(std::string& text);

  /// Writes `text`, zero bytes included. An empty text makes an empty file.
  /// \param append  True: appends to the file. False: replaces its content.
  /// \return Whether the whole text was written and the file closed.
  bool WriteText(const std::string& text, bool append);

  /// Reads the whole file into memory. The first success is kept: later calls return the same
  /// bytes, even when the file has changed. After a failure, a call tries again.
  /// \param[out] bin  Receives the bytes. They belong to this object and live as long as it does;
  ///                  not null, even for an empty file. Unchanged on failure.
  /// \return The number of bytes, or -1. Not more than the size at the start is read, even if the
  ///         file grows during the call. Besides the texts above, the last error can be that of
  ///         `GetFileSize` or "malloc size: %d" with the size in bytes.
  int64_t ReadBinary(uint8_t*& bin);

  /// Writes `size` bytes from `bin`, which stays the caller's.
  /// \param append  True: appends to the file. False: replaces its content.
  /// \return Whether all bytes were written and the file closed. A `size` below 1
  ///         ("invalid binary size") and a null `bin` ("invalid binary pointer") touch no file.
  bool WriteBinary(const uint8_t* bin, int64_t size, bool append);

  /// Removes a file, an empty directory or a link (not what it points to).
  /// \return True also when there is nothing at `file`, or a link to nothing, which stays. False
  ///         with "invalid paramter" for an empty path, or with "remove: %s".
  static bool DeleteFile(const std::string& file);

  /// Copies the bytes of `src` to `dst`, replacing its content; the destination comes first.
  /// The two must not be the same file: its content would be lost. Permissions are not copied. A
  /// source that can't be opened leaves `dst` untouched.
  /// \return Whether all bytes were copied and `dst` closed.
  static bool CopyFile(const std::string& dst, const std::string& src);

  /// Returns the size of a file in bytes, following links; -1 with "the file string is empty" or
  /// "stat64: %s".
  static int64_t GetFileSize(const std::string& file);

 private:
  std::string file_;
  uint8_t* binary_;
  int64_t bin_size_;
};

/// Owns one open stream and one open descriptor, each independent of the other, and closes them
/// when it goes out of scope. It leaves the last-error text alone and keeps its own (`GetError`).
/// An object is used by one thread at a time.
class FileHandler {
 public:
  /// Holds nothing.
  FileHandler();

  /// Closes what is held.
  ~FileHandler();

  FileHandler(const FileHandler&) = delete;
  FileHandler& operator=(const FileHandler&) = delete;

  /// Opens a descriptor, after closing the one that is held.
  /// \param flag  The flags of `open`. A file that it creates gets no permission bits.
  /// \return The descriptor, which stays the handler's, or -1 with "invalid input paramter" (empty
  ///         path) or the system's words in `GetError`.
  int Open(const std::string& file, int flag);

  /// Opens a stream, after closing the one that is held.
  /// \param mode  The mode of `fopen`.
  /// \return The stream, which stays the handler's, or null with "invalid input paramters" (empty
  ///         path or null mode) or the system's words in `GetError`.
  FILE* Open(const std::string& file, const char* mode);

  /// Closes the stream, if one is held, and empties the error text.
  void DestroyHandle();

  /// Closes the descriptor, if one is held, and empties the error text.
  void DestroyDescriptor();

  /// Closes the stream and returns whether that worked.
  /// \return 0, also when no stream is held, or the `errno` of the failed close. The stream is no
  ///         longer held in either case.
  int CloseHandle();

  /// Returns the reason of the last failed `Open`; empty after a good one and after a close.
  const std::string& GetError() const;

 private:
  FILE* fp_;
  int fd_;
  std::string error_msg;
};

/// Reads a file in blocks, from its first byte on. Failures leave the last-error texts of `File`,
/// or "no file is open". An object is used by one thread at a time.
class FileReader {
 public:
  /// Opens a file, after closing the one that is open.
  /// \return False with "open file: %s".
  bool Open(const std::string& file);

  /// Reads the next `size` bytes.
  /// \param[out] data   Receives them; room for `size` bytes.
  /// \param[out] count  Receives how many bytes were read: `size`, or fewer at the end of the file
  ///                    or before an error.
  /// \return False with "read file: %s".
  bool Read(void* data, size_t size, size_t& count);

  /// Returns the size of the open file in bytes, as it is now; -1 with "fstat64: %s".
  int64_t GetSize() const;

  /// Returns why the last `Open` failed, in the system's words; empty after a good one.
  const std::string& GetError() const;

 private:
  friend class FileWriter;

  FileHandler handler_;
  FILE* fp_ = nullptr;  // owned by `handler_`
};

/// Writes a file in blocks. Failures leave the last-error texts of `File`, or "no file is open". An
/// object is used by one thread at a time.
class FileWriter {
 public:
  /// Opens a file, after closing the one that is open. Creates a missing file.
  /// \param append  True: appends to the file. False: replaces its content.
  /// \return False with "open file: %s".
  bool Open(const std::string& file, bool append);

  /// Writes `size` bytes from `data`.
  /// \return False with "write file: %s". A success can still fail in `Close`, as bytes are
  /// buffered.
  bool Write(const void* data, size_t size);

  /// Writes the rest of another file, in the kernel if it can copy between the two.
  /// \return False with "read file: %s" or "write file: %s".
  bool WriteRest(FileReader& reader);

  /// Writes what is buffered and closes the file. Without this call, the destructor closes it, and
  /// nobody learns of a failure.
  /// \return False with "write file: %s" or "close file: %s".
  bool Close();

  /// Returns why the last `Open` failed, in the system's words; empty after a good one.
  const std::string& GetError() const;

 private:
  bool Flush();

  FileHandler handler_;
  FILE* fp_ = nullptr;  // owned by `handler_`
};

}  // namespace util

#endif  // LIBBASIC_FILE_H_
