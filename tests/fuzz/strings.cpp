// The string functions, against others that take one byte or one piece at a time.

#include "fuzz.h"
#include "misc.h"

void Fuzz(FuzzedDataProvider& data) {
  const std::string text = TakeText(data), other = TakeText(data), new_str = TakeText(data);

  static const std::regex integer("0[xX][0-9a-fA-F]*|(0[bB])?[0-9]*");
  Expect(util::IsIntegerDigit(text), !text.empty() && std::regex_match(text.c_str(), integer));

  std::string left = text, right = text;
  while (!left.empty() && other.find(left.front()) != std::string::npos) left.erase(0, 1);
  while (!right.empty() && other.find(right.back()) != std::string::npos) right.pop_back();
  Expect(util::LeftTrim(text, other), left);
  Expect(util::RightTrim(text, other), right);
  Expect(util::TrimString(text, other), util::LeftTrim(right, other));

  // Lines and rest together are the text, and no line is left out.
  const char* rest = text.c_str();
  std::string line, lines;
  for (const char* next; (next = util::GetLine(rest, line)) != nullptr; rest = next) {
    Expect(line.find('\n') + 1, line.size());
    lines += line;
  }
  Expect(std::string(rest).find_first_of("\r\n"), std::string::npos);
  Expect(lines + rest, std::regex_replace(text.c_str(), std::regex("\r\n?"), "\n"));

  if (other.empty()) return;
  std::vector<std::string> actual = {"before"}, pieces = actual;
  util::SplitString(text, other, actual);
  std::string uncut = text.empty() ? "" : text + other;
  for (size_t end; (end = uncut.find(other)) != std::string::npos;) {
    if (end > 0) pieces.push_back(uncut.substr(0, end));
    uncut.erase(0, end + other.size());
  }
  Expect(actual == pieces, true);

  // Some replacements, such as that of "ab" by "bbaa", never come to an end; they are passed over.
  std::string replaced = text;
  size_t pos = 0;
  for (int i = 0; i < 200 && (pos = replaced.find(other)) != std::string::npos; ++i)
    replaced.replace(pos, other.size(), new_str);
  if (new_str.find(other) != std::string::npos) replaced = text, pos = std::string::npos;
  if (pos == std::string::npos) Expect(util::ReplaceAll(text, other, new_str), replaced);
}
