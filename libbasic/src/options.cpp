#include "options.h"

#include "misc.h"

namespace util {
namespace {

constexpr int kMessageOffset = 32;
constexpr int kScreenWidth = 96;
// Unlike `isspace`, this knows no vertical tab, and no locale.
bool IsWhitespace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r'; }

}  // namespace

Options::Options(int argc, const char* const* argv)
    : argv_(argv), message_offset_(kMessageOffset), screen_width_(kScreenWidth) {
  for (int i = 1; i < argc; ++i) {
    options_.emplace_back(argv[i]);
  }
  SetDescription("No description provided.");
}

Options::~Options() = default;

bool Options::Parse(const std::string& option, const std::string& long_option,
                    const std::string& desc, bool* is_depend_exist, bool& id, bool show) {
  if (!CheckAnyName(option, long_option)) {
    return false;
  }
  const bool is_short_found = !option.empty() && Find(option);
  const bool is_long_found = !long_option.empty() && Find(long_option);
  if (show) {
    SetOptionDesc(JoinNames(option, long_option), desc);
  }
  if (is_short_found || is_long_found) {
    id = true;
  }
  return CheckDepend(is_depend_exist, option, is_short_found, long_option, is_long_found);
}

std::string Options::GetErrorOptions(bool treat_nonoption_as_error) const {
  std::string errmsg;
  for (size_t index = 0; index < options_.size(); ++index) {
    if (IsValueAt(index) && !treat_nonoption_as_error) {
      continue;
    }
    if (!errmsg.empty()) {
      errmsg += " ";
    }
    errmsg += options_[index];
  }
  return errmsg.empty() ? errmsg : "Unsupported option '" + errmsg + "'";
}

void Options::GetNonoptions(std::vector<std::string>& nonoptions) const {
  for (size_t index = 0; index < options_.size(); ++index) {
    if (IsValueAt(index)) {
      nonoptions.push_back(options_[index]);
    }
  }
}

void Options::SetDescription(const std::string& description) {
  description_ = "Description: ";
  const std::string regular_prefix(description_.size(), ' ');
  description_ +=
      Format(description, "", regular_prefix, static_cast<unsigned int>(screen_width_)) + "\n";
}

void Options::SetGroupTitle(const std::string& title) { options_desc_ += "\n" + title + "\n"; }

void Options::ClearDescription() {
  description_.clear();
  options_desc_.clear();
}

void Options::SetMessageOffset(int offset) {
  if (offset > 0) {
    message_offset_ = offset;
  }
}

void Options::SetScreenWidth(int width) {
  if (width > 0) {
    screen_width_ = width;
  }
}

std::string Options::GetHelpInfo() const {
  return std::string("Usage: ") + argv_[0] + " [options] \n\n" + description_ + options_desc_;
}

bool Options::Find(const std::string& option) {
  if (option[0] == '-') {
    return Consume([&](size_t& index) { index += options_[index] == option ? 1 : 0; });
  }
  if (options_.empty() || options_.front() != option) {
    return false;
  }
  options_.erase(options_.begin());
  return true;
}

bool Options::IsValueAt(size_t index) const {
  // An empty argument begins with its NUL, and so can be a value.
  return index < options_.size() && options_[index][0] != '-';
}

size_t Options::MatchValue(const std::string& option, size_t index, std::string& value) const {
  const std::string& str = options_[index];
  const size_t pos = option.size();
  if (str.compare(0, pos, option) != 0) {
    return 0;
  }
  if (str.size() == pos && IsValueAt(index + 1)) {
    value = options_[index + 1];
    return 2;
  }
  if (str.size() > pos + 1 && str[pos] == '=') {
    value = str.substr(pos + 1);
    return 1;
  }
  return 0;
}

bool Options::CheckAnyName(const std::string& option, const std::string& long_option) {
  if (option.empty() && long_option.empty()) {
    SetLastError("Short and long options are empty");
    return false;
  }
  return true;
}

bool Options::CheckDashes(const std::string& name, size_t dash_count) {
  if (!name.empty() && name.find_first_not_of('-') != dash_count) {
    SetLastError("Option '%s' is invalid", name.c_str());
    return false;
  }
  return true;
}

bool Options::CheckDepend(const bool* is_depend_exist, const std::string& option,
                          bool is_short_found, const std::string& long_option, bool is_long_found) {
  if (is_depend_exist == nullptr || *is_depend_exist || (!is_short_found && !is_long_found)) {
    return true;
  }
  SetLastError("Unsupported option '%s'", (is_short_found ? option : long_option).c_str());
  return false;
}

std::string Options::JoinNames(const std::string& option, const std::string& long_option) {
  const char* separator = option.empty() || long_option.empty() ? "" : ", ";
  return " " + option + separator + long_option;
}

std::string Options::Format(const std::string& input, const std::string& first_prefix,
                            const std::string& prefix, unsigned int width) {
  std::string word;
  std::string result = first_prefix;
  // Callers choose the prefixes so that text begins in the same column after either.
  auto current_index = static_cast<unsigned int>(prefix.size());
  const auto break_line = [&] {
    if (current_index > width) {
      result += "\n" + prefix;
      // The word that moves to the new line is not counted there. The layout of existing help
      // texts depends on it.
      current_index = static_cast<unsigned int>(prefix.size());
    }
  };
  for (const char c : input) {
    if (!IsWhitespace(c)) {
      word += c;
      ++current_index;
      continue;
    }
    break_line();
    if (!word.empty()) {
      result += word + " ";
      ++current_index;
      word.clear();
    }
  }
  break_line();
  return result + word;
}

void Options::SetOptionDesc(const std::string& opt, const std::string& desc) {
  options_desc_ += opt;
  const auto message_offset = static_cast<size_t>(message_offset_);
  size_t prefix_space = message_offset;
  if (opt.size() > message_offset) {
    options_desc_ += "\n";
  } else {
    prefix_space -= opt.size();
  }
  options_desc_ += Format(desc, std::string(prefix_space, ' '), std::string(message_offset, ' '),
                          static_cast<unsigned int>(screen_width_)) +
                   "\n";
}

}  // namespace util
