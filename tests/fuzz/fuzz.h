#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <iostream>
#include <regex>
#include <string>
#include <vector>

// What the fuzz targets share. A target makes calls from the bytes that it is given, and compares
// what they do with the same done in another way, plain or slow.
//
// Texts are taken from the front of the bytes, where a backslash and one more byte end each: a seed
// shows one text a line. Numbers are taken from the back.

// Short, as std::regex recurses with each character.
inline std::string TakeText(FuzzedDataProvider& data) { return data.ConsumeRandomLengthString(99); }

inline std::vector<std::string> TakeTexts(FuzzedDataProvider& data) {
  std::vector<std::string> texts(data.ConsumeIntegralInRange<size_t>(0, 9));
  for (std::string& text : texts) text = TakeText(data);
  return texts;
}

// Makes the input a finding when the two differ.
template <typename T>
void Expect(const T& actual, const T& expected) {
  if (actual == expected) return;
  std::cerr << "actual:   [" << actual << "]\nexpected: [" << expected << "]\n";
  __builtin_trap();
}

// What a target does with one input.
void Fuzz(FuzzedDataProvider& data);

// Here for all, as each target is one source.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  FuzzedDataProvider data(bytes, size);
  Fuzz(data);
  return 0;
}
