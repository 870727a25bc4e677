#ifndef LIBBASIC_OPTIONS_H_
#define LIBBASIC_OPTIONS_H_

#if __cplusplus < 201703L
#include "libbasic needs C++17 or later"  // Unlike #error, it ends the compilation at once.
#endif

#include <cstddef>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// \file
/// Command lines and their help text.

namespace util {

/// A command line and its help text.
///
/// A program makes one object from its arguments and then declares its options one by one with
/// `Parse`. Each call consumes all occurrences of the option, with their values, from the arguments
/// that are left, passes the result to the caller and appends the option's entry to the help text.
/// So arguments are consumed in the order of the declarations, not of the command line. What is
/// left after the last one is unsupported, or the program's own non-option arguments.
///
/// An option has a short name with one dash and a long name with two. Either may be missing, and
/// the short name may be of any length. Names are case-sensitive and can't be abbreviated. A dash
/// argument is one that begins with "-", such as "-" and "-5"; "--" has no special meaning.
///
/// - A flag takes its name alone.
/// - An option with a value takes its name and the next argument, if there is one and it is no dash
///   argument; or "name=text", with the text as value, whatever it begins with.
/// - A list takes the same, and all further arguments up to the next dash argument.
///
/// A name without its value is not consumed, and neither is "name=". A second declaration of a name
/// finds nothing. The object is used by one thread. It throws nothing of its own.
class Options {
 public:
  /// Copies `argv[1]` to `argv[argc-1]` as the arguments to consume.
  /// \param argv  Must outlive the object; `argv[0]` is the program's name in the help text. The
  ///              `argv` of `main` fits, with and without `const`.
  Options(int argc, const char* const* argv);
  ~Options();

  /// A copy has the same arguments left and the same help text.
  Options(const Options&) = default;
  /// As above.
  Options& operator=(const Options&) = default;

  /// Declares a flag: an option without a value. A name without a dash is a word that is only
  /// found, once, as the first of the arguments left.
  /// \param option       The short name, with its dash; empty for none.
  /// \param long_option  The long name, with its dashes; empty for none.
  /// \param desc  Text of the help entry.
  /// \param[in] is_depend_exist  Null, or whether what the option depends on is given: if false,
  ///     giving the option is an error.
  /// \param[in,out] id  Set to true if the flag is given, else unchanged.
  /// \param show  Whether there is a help entry.
  /// \return False with "Short and long options are empty" when there is no name, or with
  ///         "Unsupported option '%s'" (the short name, if that was given) when what it depends on
  ///         is missing; the flag has then been consumed and `id` set.
  bool Parse(const std::string& option, const std::string& long_option, const std::string& desc,
             bool* is_depend_exist, bool& id, bool show);

  /// Declares an option with one value. If it is given several times, all are consumed and the last
  /// long-named one wins; without one, the last short-named one.
  ///
  /// A `std::string` receives the text unchanged. Other types are converted with a stringstream; a
  /// text that doesn't convert as a whole counts as found and leaves `id` unchanged. So `char`,
  /// `signed char` and `unsigned char` take one character, and `bool` takes 0 or 1. The conversion
  /// starts from `T{}`, or from a copy of `id` if `T` has no default constructor. When an
  /// `operator>>` throws, that option stays with its value, and those before it are gone.
  ///
  /// \param option       The short name, with its dash. With fewer than 2 characters, it counts as
  ///                     absent.
  /// \param long_option  The long name, with its dashes. With fewer than 3 characters, it counts as
  ///                     absent.
  /// \param val_desc  Name of the value in the help entry; "<value>" when empty.
  /// \param opt_desc  Text of the help entry.
  /// \param is_depend_exist  As for a flag.
  /// \param[out] is_found_option  Null, or receives whether the option was given with a value.
  /// \param[in,out] id  Receives the value when there is one, else is left as it is.
  /// \param show  Whether there is a help entry.
  /// \return False with "Short and long options are empty" or "Option '%s' is invalid" (the dashes
  ///         are wrong) for invalid names: there is then no help entry and `is_found_option` is
  ///         unchanged, but with an invalid long name the short one has been consumed. Or with
  ///         "Unsupported option '%s'" as for a flag. A missing value is no failure: the name is
  ///         not consumed, and `GetErrorOptions` reports it.
  template <typename T>
  bool Parse(const std::string& option, const std::string& long_option, const std::string& val_desc,
             const std::string& opt_desc, bool* is_depend_exist, bool* is_found_option, T& id,
             bool show) {
    return ParseValues(option, long_option, val_desc, opt_desc, is_depend_exist, is_found_option,
                       id, show);
  }

  /// Declares an option with any number of values. One argument is one value: nothing is split at
  /// commas. Parameters and result are those of the form with one value, except:
  /// \param[in,out] id  The values are appended, short-named occurrences first; what is there
  ///                    stays. A text that doesn't convert as a whole appends nothing. `T` needs a
  ///                    default constructor. When an `operator>>` throws, that value and all after
  ///                    it stay.
  template <typename T>
  bool Parse(const std::string& option, const std::string& long_option, const std::string& val_desc,
             const std::string& opt_desc, bool* is_depend_exist, bool* is_found_option,
             std::vector<T>& id, bool show) {
    return ParseValues(option, long_option, val_desc, opt_desc, is_depend_exist, is_found_option,
                       id, show);
  }

  /// Returns "Unsupported option '...'" with all arguments left, separated by blanks; empty when
  /// there is nothing to report. The last-error text stays as it is.
  /// \param treat_nonoption_as_error  Whether arguments without a dash are reported too.
  std::string GetErrorOptions(bool treat_nonoption_as_error) const;

  /// Appends the arguments left that are no dash arguments to `nonoptions`, in order. They stay in
  /// the object.
  void GetNonoptions(std::vector<std::string>& nonoptions) const;

  /// \name Help text
  /// The text grows with each declaration and is wrapped as it grows, with the offset and width of
  /// that moment. Words are never broken, a line end in a text is a blank, and the first word of a
  /// continuation line is not counted, so that such a line can overrun the width by it. An entry
  /// whose names are longer than the offset has its description on the next line.
  /// \{

  /// Replaces the program's description; the default is "No description provided.".
  void SetDescription(const std::string& description);

  /// Appends an empty line and a heading for the options declared next.
  void SetGroupTitle(const std::string& title);

  /// Drops the description and all headings and entries so far. Offset and width stay.
  void ClearDescription();

  /// Sets the column, counted from 0, at which descriptions of options begin; the default is 32.
  /// A value below 1 is ignored.
  void SetMessageOffset(int offset);

  /// Sets the number of columns at which text is wrapped; the default is 96. A value below 1 is
  /// ignored.
  void SetScreenWidth(int width);

  /// Returns usage line, description, headings and entries, in this order.
  std::string GetHelpInfo() const;

  /// \}

 private:
  // The searches take all occurrences of a name and tell whether there was one. For a flag whose
  // name has no dash, that is the first argument at most.
  bool Find(const std::string& option);
  template <typename T>
  bool Find(const std::string& option, T& value);
  template <typename T>
  bool Find(const std::string& option, std::vector<T>& value);

  // What the searches share. `Consume` walks the arguments once, front to back. At each it calls
  // `match` with a reference to its index, which `match` advances over what it takes.
  template <typename Match>
  bool Consume(Match match);
  bool IsValueAt(size_t index) const;
  size_t MatchValue(const std::string& option, size_t index, std::string& value) const;

  // What the `Parse` forms share.
  template <typename Value>
  bool ParseValues(const std::string& option, const std::string& long_option,
                   const std::string& val_desc, const std::string& opt_desc, bool* is_depend_exist,
                   bool* is_found_option, Value& id, bool show);
  static bool CheckAnyName(const std::string& option, const std::string& long_option);
  static bool CheckDashes(const std::string& name, size_t dash_count);
  static bool CheckDepend(const bool* is_depend_exist, const std::string& option,
                          bool is_short_found, const std::string& long_option, bool is_long_found);
  static std::string JoinNames(const std::string& option, const std::string& long_option);

  template <typename T>
  static bool SetValue(const std::string& s, T& value);

  std::string Format(const std::string& input, const std::string& first_prefix,
                     const std::string& prefix, unsigned int width);
  void SetOptionDesc(const std::string& opt, const std::string& desc);

  const char* const* argv_;
  int message_offset_;
  int screen_width_;
  std::string description_;
  std::string options_desc_;
  std::vector<std::string> options_;
};

template <typename Match>
bool Options::Consume(Match match) {
  // What is kept moves up to what was kept before: one pass, however much is taken. What was taken
  // is erased at the end, also when a caller's `operator>>` throws.
  struct Walk {
    ~Walk() {
      const auto begin = options.begin();
      options.erase(begin + static_cast<std::ptrdiff_t>(kept),
                    begin + static_cast<std::ptrdiff_t>(index));
    }
    std::vector<std::string>& options;
    size_t kept = 0;
    size_t index = 0;
  };
  const size_t size = options_.size();
  Walk walk{options_};
  while (walk.index < size) {
    const size_t before = walk.index;
    match(walk.index);
    if (walk.index == before) {
      if (walk.kept != walk.index) {
        options_[walk.kept] = std::move(options_[walk.index]);
      }
      ++walk.kept;
      ++walk.index;
    }
  }
  return walk.kept < size;
}

template <typename T>
bool Options::Find(const std::string& option, T& value) {
  std::string text;
  return Consume([&](size_t& index) {
    const size_t taken = MatchValue(option, index, text);
    if (taken > 0) {
      SetValue(text, value);
      index += taken;
    }
  });
}

template <typename T>
bool Options::Find(const std::string& option, std::vector<T>& value) {
  const auto append = [&value](const std::string& text) {
    T single_val{};
    if (SetValue(text, single_val)) {
      value.push_back(std::move(single_val));
    }
  };
  std::string text;
  return Consume([&](size_t& index) {
    const size_t taken = MatchValue(option, index, text);
    if (taken > 0) {
      append(text);
      for (index += taken; IsValueAt(index); ++index) {
        append(options_[index]);
      }
    }
  });
}

template <typename T>
bool Options::SetValue(const std::string& s, T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    value = s;
  } else {
    auto converted = [&] {
      if constexpr (std::is_default_constructible_v<T>) {
        return T{};
      } else {
        return value;
      }
    }();
    std::stringstream stream(s);
    if (!(stream >> converted) || stream.peek() != std::stringstream::traits_type::eof()) {
      return false;
    }
    value = std::move(converted);
  }
  return true;
}

template <typename Value>
bool Options::ParseValues(const std::string& option, const std::string& long_option,
                          const std::string& val_desc, const std::string& opt_desc,
                          bool* is_depend_exist, bool* is_found_option, Value& id, bool show) {
  // A name with nothing after its dashes counts as absent.
  const std::string short_name = option.size() > 1 ? option : std::string();
  const std::string long_name = long_option.size() > 2 ? long_option : std::string();
  if (!CheckAnyName(short_name, long_name) || !CheckDashes(short_name, 1)) {
    return false;
  }
  const bool is_short_found = !short_name.empty() && Find(short_name, id);
  if (!CheckDashes(long_name, 2)) {
    return false;
  }
  const bool is_long_found = !long_name.empty() && Find(long_name, id);
  if (show) {
    SetOptionDesc(
        JoinNames(short_name, long_name) + (val_desc.empty() ? " <value> " : " " + val_desc + " "),
        opt_desc);
  }
  if (is_found_option != nullptr) {
    *is_found_option = is_short_found || is_long_found;
  }
  return CheckDepend(is_depend_exist, option, is_short_found, long_option, is_long_found);
}

}  // namespace util

#endif  // LIBBASIC_OPTIONS_H_
