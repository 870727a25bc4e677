// The choice of the device image, against one regular expression.

#include "fuzz.h"

// The tool keeps its parts to itself, so the target takes in its source.
#define main TavrofuseMain
#include "../../tavrofuse/main.cpp"
#undef main

void Fuzz(FuzzedDataProvider& data) {
  static const std::regex usable(",*kind=elf,+[^,]+,+=*[^,=]+=+([^,=]+)=*,*");
  const vector<string> images = TakeTexts(data);
  std::smatch match;
  const auto is_usable = [&](const string& text) { return std::regex_match(text, match, usable); };
  const bool has_image = std::any_of(images.begin(), images.end(), is_usable);
  Expect(PickImage(images), has_image ? match.str(1) : "");
}
