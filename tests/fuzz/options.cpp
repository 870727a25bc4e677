// Options, against regular expressions over the whole command line.

#include "options.h"

#include <map>

#include "fuzz.h"

// What is taken with the name of a flag, of an option with one value and of a list. A zero byte
// stands before each argument.
constexpr const char* kTails[] = {"", "(=[^\\0]+|\\0[^-\\0][^\\0]*|\\0)",
                                  "(=[^\\0]+|\\0[^-\\0][^\\0]*|\\0)(\\0[^-\\0][^\\0]*|\\0)*"};

// Takes an option out of `left` and returns its values, each with a zero byte before it.
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

void Fuzz(FuzzedDataProvider& data) {
  const std::vector<std::string> args = TakeTexts(data);
  std::vector<const char*> argv = {"program"};
  std::string left(1, '\0');
  for (const std::string& text : args) left += argv.emplace_back(text.c_str()) + left.substr(0, 1);
  util::Options options(static_cast<int>(argv.size()), argv.data());
  for (int i = 0; i < 4 && data.remaining_bytes() > 0; ++i) {
    const std::string name = data.PickValueInArray({"-a", "-ab", "-a=b", "-b"});
    const std::string long_name = data.PickValueInArray({"--a", "--ab", "--a=b"});
    const int form = data.ConsumeIntegralInRange(0, 2);
    bool is_found = false;
    std::vector<std::string> list(form == 1 ? 1 : 0);
    form == 0   ? options.Parse(name, long_name, "", nullptr, is_found, false)
    : form == 1 ? options.Parse(name, long_name, "", "", nullptr, &is_found, list[0], false)
                : options.Parse(name, long_name, "", "", nullptr, &is_found, list, false);
    std::string expected = Take(name, form, left), actual;
    expected += Take(long_name, form, left);
    Expect(is_found, !expected.empty());
    // Of several values of one option, the last stands.
    if (form == 1) expected.erase(0, expected.rfind('\0'));
    for (const std::string& value : list) actual += '\0' + value;
    if (form > 0 && is_found) Expect(actual, expected);

    std::string errors = left.substr(std::min(left.find_first_not_of('\0'), left.size()));
    std::replace(errors.begin(), errors.end(), '\0', ' ');
    if (!errors.empty()) errors = "Unsupported option '" + errors, errors.back() = '\'';
    Expect(options.GetErrorOptions(true), errors);
  }
}
