#ifndef LIBBASIC_FILE_H_
#define LIBBASIC_FILE_H_

#if __cplusplus < 201703L
#include "libbasic needs C++17 or later"  // Unlike #error, it ends the compilation at once.
#endif

#include <cstdint>
#include <cstdio>
#include <string>

/// \file
/// Whole-file operations, reading and writing in blocks, files that appear only when complete, and
/// the owner of an open stream or descriptor.

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
/// Opening and reading go on after a signal handler has interrupted them. Writing creates a missing
/// file. If it fails, the file keeps what was written before. An object is used by one thread at a
/// time; the static operations by any.
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
  /// source that can't be opened, or is a directory, leaves `dst` untouched.
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
/// when it goes out of scope. Opening goes on after a signal handler has interrupted it. It leaves
/// the last-error text alone and keeps its own (`GetError`). An object is used by one thread at a
/// time.
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

  /// Opens a stream on a descriptor, after closing the stream that is held.
  /// \param fd    A descriptor, which becomes the stream's and is closed if this fails, or the
  ///              negative result of a call that has failed and left `errno`.
  /// \param mode  The mode of `fdopen`; not null.
  /// \return The stream, which stays the handler's, or null with the `strerror` text in `GetError`.
  FILE* Open(int fd, const char* mode);

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

  /// As above, on a descriptor; see `FileHandler::Open`.
  bool Open(int fd);

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

  bool Use(FILE* fp);

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

  /// As above, on a descriptor; see `FileHandler::Open`.
  bool Open(int fd);

  /// Writes `size` bytes from `data`.
  /// \return False with "write file: %s". A success can still fail in `Close`, as bytes are
  /// buffered.
  bool Write(const void* data, size_t size);

  /// Writes the rest of another file, in the kernel if it can copy between the two. Of the file
  /// itself, writes what is there at the start.
  /// \return False with "read file: %s" or "write file: %s".
  bool WriteRest(FileReader& reader);

  /// Writes what is buffered and closes the file. Without this call, the destructor closes it, and
  /// nobody learns of a failure.
  /// \return False with "write file: %s", also if an earlier write has failed, or with
  ///         "close file: %s".
  bool Close();

  /// Returns why the last `Open` failed, in the system's words; empty after a good one.
  const std::string& GetError() const;

 private:
  friend class AtomicFileWriter;

  bool Use(FILE* fp);
  bool Flush();
  bool Fail(int error);
  void Abandon();

  FileHandler handler_;
  FILE* fp_ = nullptr;  // owned by `handler_`
  int error_ = 0;       // `errno` of the last write that failed
};

/// Writes a file so that nobody reads a part of it: what is written goes into a draft beside the
/// file, and `Commit` renames the draft when it is complete and closed. Until then, and after a
/// failure, an older file stays as it was. A program that is killed leaves its draft. Nothing is
/// synced to the disk.
///
/// The file keeps the permissions of an older one, and its owner and group if the system lets this
/// process set them. If the group or the access control list can't be kept, the group gets no more
/// permissions than all others. A symbolic link stays, and what it points to is replaced; the draft
/// is then beside that. Another hard link to the older file keeps the old content.
///
/// What can't be replaced is written in place: others may read a part of it, and after a failure it
/// keeps what was written before. That is
/// - a device or a pipe, a link to nothing, and a link in /proc, such as /proc/self/fd/1;
/// - a file that this process holds open for writing without `O_CLOEXEC`, as its standard output
///   may be, since what is written to that descriptor later would be lost;
/// - a file in a directory in which this process may not create files;
/// - a file that the system does not let it replace, such as a mount point. It is copied from the
///   draft.
///
/// Failures leave the last-error texts of `File`, "getentropy: %s" or "no file is open". An object
/// is used by one thread at a time.
class AtomicFileWriter {
 public:
  AtomicFileWriter() = default;

  /// Removes the draft, unless it has been committed.
  ~AtomicFileWriter();

  AtomicFileWriter(const AtomicFileWriter&) = delete;
  AtomicFileWriter& operator=(const AtomicFileWriter&) = delete;

  /// Begins a file, after removing a draft that has not been committed.
  /// \param draft_prefix  The name of the draft is this and 16 random hexadecimal digits; no "/".
  /// \return False with "open file: %s" or "getentropy: %s".
  bool Open(const std::string& file, const std::string& draft_prefix);

  /// Writes `size` bytes from `data`.
  /// \return False with "write file: %s". A success can still fail in `Commit`, as bytes are
  ///         buffered.
  bool Write(const void* data, size_t size);

  /// Completes the file and lets it appear under its name.
  /// \return False with "write file: %s", also if an earlier `Write` has failed, "close file: %s" or
  ///         "rename file: %s", or with a text of `Open` or "read file: %s" if the draft has to be
  ///         copied. After a failure, the destructor removes the draft.
  bool Commit();

  /// Removes the draft for a program that is about to end itself. Async-signal-safe: a signal
  /// handler may call it at any time in the thread that uses this object, and must then end the
  /// program. Does nothing to a file that is written in place.
  void RemoveDraft();

 private:
  void CloseDirectory();

  FileWriter writer_;
  std::string file_;
  int directory_ = -1;  // of the next two; -1 if there is no draft
  std::string name_;
  std::string draft_;
};

}  // namespace util

#endif  // LIBBASIC_FILE_H_
