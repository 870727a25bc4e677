// Options and their help text, against regular expressions over the whole command line.

#include "options.h"

#include <map>

#include "fuzz.h"

// What is taken with the name of a flag, of an option with one value and of a list. A zero byte
// stands ahead of each argument.
constexpr const char* kTails[] = {"", "(=[^\\0]+|\\0[^-\\0][^\\0]*|\\0)",
                                  "(=[^\\0]+|\\0[^-\\0][^\\0]*|\\0)(\\0[^-\\0][^\\0]*|\\0)*"};

// Takes an option out of `left` and returns its values, each with a zero byte ahead.
static std::string Take(const std::string& name, int form, std::string& left) {
  static std::map<std::string, std::regex> options;
  const std::string pattern = "\\0" + name + kTails[form] + "(?=\\0)";
  const std::regex& option = options.try_emplace(pattern, pattern).first->second;
  std::string values;
  for (std::sregex_iterator match(left.begin(), left.end(), option), end; match != end; ++match)
    values += match->str().replace(0, name.size() + 2, 1, '\0');
  left = std::regex_replace(left, option, "");
  return values;
}

// Cuts the text at its whitespace, then sets piece by piece. An empty piece prints nothing, but can
// still end a line.
static std::string Wrap(const std::string& text, size_t offset, size_t width) {
  std::string result;
  size_t column = offset;
  for (size_t begin = 0, end = 0; begin <= text.size(); begin = end + 1) {
    end = std::min(text.find_first_of(" \t\n\f\r", begin), text.size());
    if ((column += end - begin) > width) result += "\n" + std::string(column = offset, ' ');
    const std::string blank = end > begin && end < text.size() ? " " : "";
    result += text.substr(begin, end - begin) + blank;
    column += blank.size();
  }
  return result + "\n";
}

void Fuzz(FuzzedDataProvider& data) {
  const std::vector<std::string> args = TakeTexts(data);
  std::vector<const char*> argv = {"program"};
  std::string left(1, '\0');
  for (const std::string& text : args) left += argv.emplace_back(text.c_str()) + left.substr(0, 1);
  util::Options options(static_cast<int>(argv.size()), argv.data());
  std::string help = "Usage: program [options] \n\nDescription: No description provided.\n";
  for (int i = 0; i < 4 && data.remaining_bytes() > 0; ++i) {
    const std::string name = data.PickValueInArray({"-a", "-ab", "-a=b", "-b"});
    const std::string long_name = data.PickValueInArray({"--a", "--ab", "--a=b"});
    const std::string desc = TakeText(data);
    const int form = data.ConsumeIntegralInRange(0, 2);
    const auto width = data.ConsumeIntegralInRange<uint8_t>(1, 99);
    options.SetScreenWidth(width);
    bool is_found = false;
    std::vector<std::string> list(form == 1 ? 1 : 0);
    form == 0   ? options.Parse(name, long_name, desc, nullptr, is_found, true)
    : form == 1 ? options.Parse(name, long_name, "", desc, nullptr, &is_found, list[0], true)
                : options.Parse(name, long_name, "", desc, nullptr, &is_found, list, true);
    std::string expected = Take(name, form, left), actual;
    expected += Take(long_name, form, left);
    Expect(is_found, !expected.empty());
    // Of several values of one option, the last stands.
    if (form == 1) expected.erase(0, expected.rfind('\0'));
    for (const std::string& value : list) actual += '\0' + value;
    if (form > 0 && is_found) Expect(actual, expected);

    std::string entry = " " + name + ", " + long_name + (form == 0 ? "" : " <value> ");
    entry.resize(32, ' ');
    help += entry + Wrap(desc, entry.size(), width);
    Expect(options.GetHelpInfo(), help);

    std::string errors = left.substr(std::min(left.find_first_not_of('\0'), left.size()));
    std::replace(errors.begin(), errors.end(), '\0', ' ');
    if (!errors.empty()) errors = "Unsupported option '" + errors, errors.back() = '\'';
    Expect(options.GetErrorOptions(true), errors);
  }
}
