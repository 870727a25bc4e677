#include "misc.h"

#include <chrono>

#include "test_support.h"

namespace {

using namespace util;

TEST(LastError, BelongsToItsThreadAndStaysUntilTheNextOne) {
  SetLastError("%s: %d", "first", 1);
  std::thread([] {
    EXPECT_EQ(GetLastError(), "");
    SetLastError("other");
  }).join();
  EXPECT_EQ(GetLastError(), "first: 1");
  SetLastError("%s, %s", GetLastError().c_str(), std::string(5000, 'x').c_str());
  EXPECT_EQ(GetLastError(), "first: 1, " + std::string(4085, 'x'));
}

TEST(LastError, CanBeReadAndSetWhileItsThreadEnds) {
  struct AtThreadEnd {
    ~AtThreadEnd() {
      EXPECT_EQ(GetLastError(), std::string(100, 'x'));
      SetLastError("end");
      EXPECT_EQ(GetLastError(), "end");
    }
  };
  std::thread([] {
    // Made before the thread's first error, so destroyed after what that may have made.
    const thread_local AtThreadEnd at_end;
    static_cast<void>(&at_end);
    SetLastError("%s", std::string(100, 'x').c_str());
  }).join();
}

TEST(StrFormat, WritesTextsOfAnyLengthUpToTheirFirstNul) {
  for (const size_t size : {0, 1, 510, 511, 512, 513, 100000}) {
    SCOPED_TRACE("a text of " + std::to_string(size));
    const std::string text(size, 'x');
    EXPECT_EQ(StrFormat("%s", text.c_str()), text);
    EXPECT_EQ(StrFormat("%s%c-", text.c_str(), '\0'), text);
  }
  EXPECT_EQ(StrFormat("%lc", static_cast<wint_t>(0xD800)), "") << "no character";
}

TEST(StrFormat, TakesZeroAndNullAsValues) {
  EXPECT_EQ(StrFormat("%d", 0), "0");
  EXPECT_EQ(StrFormat("%p", nullptr), "(nil)");
  EXPECT_EQ(StrFormat(std::string("%d"), 0), "0");
}

TEST(StrFormat, TakesStringsAndWhatConvertsToThemAsFormat) {
  struct Derived : std::string {
    using std::string::string;
  };
  const std::string string = "%d%%";
  const Derived derived = "%d%%";
  EXPECT_EQ(StrFormat(string, 7), "7%");
  EXPECT_EQ(StrFormat(derived, 7), "7%");
  EXPECT_EQ(StrFormat(fs::path("%d%%"), 7), "7%");
  EXPECT_EQ(StrFormat(std::ref(string), 7), "7%");
  const auto format_list = [](const auto* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = StrFormat(*format, ap);
    va_end(ap);
    return text;
  };
  EXPECT_EQ(format_list(&string, 7), "7%");
  EXPECT_EQ(format_list(&derived, 7), "7%");
}

TEST(SplitString, AppendsThePiecesThatAreNotEmpty) {
  const struct {
    std::string text;
    std::string delimiter;
    Strings pieces;
  } cases[] = {
      {",a,,b,", ",", {"a", "b"}},     {"a, b,c", ", ", {"a", "b,c"}},
      {"a", "long", {"a"}},            {"a", "", {}},
      {"", ",", {}},                   {"XX", "XX", {}},
      {"aXXX", "XX", {"a"}},           {"abcababxab", "abab", {"abcababxab"}},
      {"aabaab", "aabaa", {"b"}},      {"xaba", "abab", {"xaba"}},
      {"xabab", "ababab", {"xabab"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.text + " at " + row.delimiter);
    Strings expected = row.pieces;
    Strings fresh;
    SplitString(row.text, row.delimiter, fresh);
    EXPECT_EQ(fresh, expected);
    expected.insert(expected.begin(), "before");
    Strings appended = {"before"};
    SplitString(row.text, row.delimiter, appended);
    EXPECT_EQ(appended, expected);
  }
  Strings own = {"a,b,c"};
  SplitString(own[0], ",", own);
  EXPECT_EQ(own, (Strings{"a,b,c", "a", "b", "c"}));
}
