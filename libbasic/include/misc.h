#ifndef LIBBASIC_MISC_H_
#define LIBBASIC_MISC_H_

#if __cplusplus < 201703L
#include "libbasic needs C++17 or later"  // Unlike #error, it ends the compilation at once.
#endif

#include <cstdarg>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// \file
/// Small free functions: the last-error text, formatting, strings, time and environment.
///
/// Text is bytes: no function here knows a character encoding. Unless its own comment says
/// otherwise, a function may be called from any thread, reports nothing and leaves the last-error
/// text alone.

/// The support library: everything in it but the `LOG_` macros.
namespace util {

/// \name Last error
/// Operations of this library report a failure by their result and leave the reason here. The text
/// belongs to the calling thread; no other thread sees it.
/// \{

/// Formats as `printf` does and keeps the result as the calling thread's last-error text, cut to
/// 4095 bytes. No line end is added. An argument may be the thread's own last-error text.
/// \param fmt  A `printf` format; not null.
void SetLastError(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

/// Returns a copy of the calling thread's last-error text, empty if this thread never set one.
/// Neither reading it nor a later success clears it; it stays until the next `SetLastError`.
std::string GetLastError();

/// \}
/// \name Strings
/// \{

/// Formats as `printf` does, at any length up to `INT_MAX` bytes.
/// \param format  A `printf` format; not null. An empty one gives an empty string.
/// \return The text up to its first NUL; an empty string when the C library can't encode it.
std::string StrFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// \cond
// What the other forms share. The compiler does not check their formats.
std::string FormatList(const char* format, va_list ap);
std::string FormatValues(const char* format, ...);

// A string, for a `va_list`. A literal 0 and `nullptr` would convert to one, but are values.
template <typename List>
using ListResult = std::enable_if_t<!std::is_null_pointer_v<List>,
                                    decltype(FormatList(nullptr, std::declval<List&>()))>;

// A string, for what converts to one, such as `std::filesystem::path`. What converts to a
// `const char*` as well has forms of its own.
template <typename String>
using FormatResult = std::enable_if_t<std::is_convertible_v<String, const std::string&> &&
                                          !std::is_convertible_v<String, const char*>,
                                      std::string>;

// Returns a value as a variadic function receives it.
template <typename T>
auto PromoteValue(T value) {
  static_assert(
      std::is_scalar_v<T>,
      "a format takes numbers, enumerations and pointers, such as the c_str() of a string");
  if constexpr (std::is_same_v<T, float>) {
    return static_cast<double>(value);
  } else {
    return value;
  }
}

template <typename List>
ListResult<List> StrFormat(const char* format, List ap) __attribute__((format(printf, 1, 0)));
/// \endcond

/// As above, on a list of arguments.
/// \param ap  A `va_list`. It is used up: the caller may only `va_end` it.
template <typename List>
ListResult<List> StrFormat(const char* format, List ap) {
  return FormatList(format, ap);
}

/// As above, with the format in what converts to a string. The compiler does not check that the
/// values fit the format.
template <typename String>
FormatResult<String> StrFormat(String&& format, va_list ap) {
  const std::string& text = std::forward<String>(format);
  return FormatList(text.c_str(), ap);
}

/// As above, with the values in the call: numbers, enumerations and pointers. A template, because a
/// variadic function must not start its list after a parameter that is a reference.
template <typename String, typename... Args>
FormatResult<String> StrFormat(String&& format, Args... args) {
  const std::string& text = std::forward<String>(format);
  return FormatValues(text.c_str(), PromoteValue(args)...);
}

/// Splits text at each occurrence of a delimiter. Empty pieces are dropped, so that leading,
/// trailing and repeated delimiters yield nothing; text without the delimiter yields itself.
///
/// A delimiter of several bytes can overlap the end of the text, and the tail is then lost: "aXXX"
/// at "XX" yields only "a".
/// \param split_str  The text. When empty, nothing happens.
/// \param delimiter  The whole delimiter, not a set of bytes. When empty, nothing happens.
/// \param[in,out] out_strs  The pieces are appended; what is there stays.
void SplitString(const std::string& split_str, const std::string& delimiter,
                 std::vector<std::string>& out_strs);

/// Returns `src` without its leading bytes that occur in `drop`, which is a set of bytes. With an
/// empty `drop`, returns `src`.
std::string LeftTrim(const std::string& src, const std::string& drop);

/// Returns `src` without its trailing bytes that occur in `drop`, which is a set of bytes. With an
/// empty `drop`, returns `src`.
std::string RightTrim(const std::string& src, const std::string& drop);

/// Returns `src` without its leading and trailing bytes that occur in `drop`, which is a set of
/// bytes. With an empty `drop`, returns `src`.
std::string TrimString(const std::string& src, const std::string& drop);

/// Takes the next line out of NUL-terminated text. A line ends with CR LF, LF or CR; it is
/// returned with a single LF at its end in each case.
///
/// \code
/// for (const char* rest = text; (rest = util::GetLine(rest, line)) != nullptr;) Use(line);
/// \endcode
/// \param buffer  The text, or null. It must not lie in `line`.
/// \param[out] line  Receives the line. Unchanged when the result is null.
/// \return Where the following line begins, inside `buffer`. Null when `buffer` is null or holds no
///         line end: text after the last line end is not returned.
const char* GetLine(const char* buffer, std::string& line);

/// Replaces `old_str` in `str`, always its first occurrence, until it no longer occurs. Text that
/// arises from a replacement is replaced as well: "ab" by "b" turns "aab" into "b". A pair that
/// keeps making new occurrences, such as "ab" and "bbaa", makes it run forever.
/// \return The result; `str` unchanged if `old_str` is empty or `new_str` contains it, as the
///         replacing would never end.
std::string ReplaceAll(const std::string& str, const std::string& old_str,
                       const std::string& new_str);

/// Tells whether `str`, up to its first NUL, has the form of an integer: decimal digits, or
/// hexadecimal ones after "0x" or "0X". A "0b" or "0B" may precede the digits but does not limit
/// them. A prefix needs no digit after it. Signs and blanks are not allowed, and an empty `str` is
/// no integer.
bool IsIntegerDigit(const std::string& str);

/// Returns 16 hexadecimal digits from the kernel's random numbers, for names that nobody can guess.
/// \return Empty on failure; the last error is "getentropy: %s".
std::string GetRandomDigits();

/// \}
/// \name Time
/// Timestamps count microseconds since the Epoch. In texts, microseconds are a "." and a plain
/// decimal number without leading zeros: 52 microseconds are ".52".
/// \{

/// Sleeps for `microseconds`, also when signals interrupt it. A negative duration returns at once.
void MicroSleep(int64_t microseconds);

/// Returns wall-clock time in microseconds since the Epoch. The clock may be set back, so
/// differences can be negative.
int64_t GetTimestamp();

/// Returns wall-clock time as local time, such as "20250102_130405".
/// \param with_usec  Whether the microseconds follow, as in "20250102_130405.52".
std::string GetSystemTime(bool with_usec);

/// Returns `timestamp` as local time, such as "2025/01/02_13:04:05". For one thread at a time, as
/// it uses `localtime`.
/// \param timestamp  Microseconds since the Epoch. Before the Epoch, the microseconds of a fraction
///                   of a second are negative and are printed with their sign.
/// \param with_usec  Whether the microseconds follow, as in "2025/01/02_13:04:05.52".
/// \return The text; empty for a time whose year the C library can't represent.
std::string ConvertTimestamp(int64_t timestamp, bool with_usec);

/// \}
/// \name Environment
/// \{

/// Returns a copy of the value of an environment variable. A variable that is not set and one set
/// to nothing both give an empty string. Not to be called while another thread changes the
/// environment.
std::string GetEnvVar(const std::string& var_name);

/// Sets an environment variable, replacing an earlier value. Not to be called while another thread
/// uses the environment.
/// \return False when the name is empty or holds a "=", or memory runs out; the last error is then
///         "setenv: %s\n" with the system's words and, unlike all others, a line end.
bool SetEnvVar(const std::string& var_name, const std::string& var_value);

/// Returns an empty string: no call stack is collected on this platform.
std::string GetCallStack();

/// Returns false: no call stack is collected on this platform.
bool IsSupportCallStack();

/// \}

}  // namespace util

#endif  // LIBBASIC_MISC_H_
