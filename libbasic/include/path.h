#ifndef LIBBASIC_PATH_H_
#define LIBBASIC_PATH_H_

#if __cplusplus < 201703L
#include "libbasic needs C++17 or later"  // Unlike #error, it ends the compilation at once.
#endif

#include <string>

/// \file
/// Questions about paths, and operations on their text.

namespace util {

/// Operations on paths. A path is bytes with "/" as the only separator; nothing is normalised, so
/// "." and ".." are names like others and a doubled "/" stays doubled.
///
/// All operations are static and may be called from any thread.
class Path {
 public:
  Path() = delete;

  /// \name Questions to the file system
  /// They follow symbolic links. They return false on any failure and leave the last-error text
  /// unchanged.
  /// \{

  /// Tells whether something exists at `path`, of whatever type. False for an empty path and for a
  /// link whose target is gone.
  static bool IsPathExists(const std::string& path);

  /// Tells whether `path` is a directory or a link to one.
  static bool IsDirectory(const std::string& path);

  /// Tells whether `path` is a regular file or a link to one.
  static bool IsNormalFile(const std::string& path);

  /// Tells whether two paths lead to the same file, of whatever type. Hard links do.
  static bool IsSameFile(const std::string& path, const std::string& other);

  /// \}
  /// \name Cutting a path apart
  /// They don't access the file system and can't fail; a part that is missing is an empty string.
  /// \{

  /// Returns the part before the last component, "/usr/lib" for "/usr/lib/a.so". One trailing "/"
  /// is ignored. Empty when there is no parent, also for "/usr".
  static std::string GetParentPath(const std::string& path);

  /// Returns the part after the last "." of the last component, "gz" for "a.tar.gz". Empty
  /// without a dot, and for a path that ends in "/".
  static std::string GetExtension(const std::string& path);

  /// Returns the last component, "a.so" for "/usr/lib/a.so". Empty for a path that ends in "/".
  static std::string GetLastName(const std::string& path);

  /// Returns the last component up to its last ".", "a.tar" for "a.tar.gz". Empty for a path that
  /// ends in "/" and for a name whose only dot comes first.
  static std::string GetFileName(const std::string& path);

  /// \}
  /// \name Asking the system
  /// An empty string means failure; the reason is the last-error text.
  /// \{

  /// Returns the absolute path of what exists at `path`, with all links resolved.
  /// \return Empty on failure; the last error is "the path is empty" or "realpath: %s".
  static std::string GetAbsolutePath(const std::string& path);

  /// Returns the working directory.
  /// \return Empty on failure, also for a path of 1024 bytes or more; the last error is
  ///         "getcwd: %s".
  static std::string GetCurrentPath();

  /// Returns the path of the running executable, cut to 1023 bytes.
  /// \return Empty on failure; the last error is "readlink: %s".
  static std::string GetProcessPath();

  /// \}
};

}  // namespace util

#endif  // LIBBASIC_PATH_H_
