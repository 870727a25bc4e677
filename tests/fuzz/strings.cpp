// Splitting and replacing, against searches that take one piece at a time.

#include "fuzz.h"
#include "misc.h"

void Fuzz(FuzzedDataProvider& data) {
  const std::string text = TakeText(data), other = TakeText(data), new_str = TakeText(data);
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
