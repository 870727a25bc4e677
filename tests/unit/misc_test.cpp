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
      // Before the other text, which could take the memory of a freed one.
      const std::string error = GetLastError();
      EXPECT_EQ(error, std::string(100, 'x'));
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
  for (const size_t size : {0UL, 1UL, 511UL, 512UL, 513UL, 100000UL}) {
    SCOPED_TRACE("a text of " + std::to_string(size));
    const std::string text(size, 'x');
    EXPECT_EQ(StrFormat("%s", text.c_str()), text);
    EXPECT_EQ(StrFormat("%s%c-", text.c_str(), '\0'), text);
  }
  EXPECT_EQ(StrFormat("%lc", static_cast<wint_t>(0xD800)), "") << "no character";
  EXPECT_EQ(StrFormat("%d", 0), "0");
  EXPECT_EQ(StrFormat(std::string("%p"), nullptr), "(nil)");
}

TEST(StrFormat, TakesStringsAndWhatConvertsToThemAsFormat) {
  const std::string string = "%d%%";
  const fs::path path = "%d%%";
  EXPECT_EQ(StrFormat(string, 7), "7%");
  EXPECT_EQ(StrFormat(path, 7), "7%");
  EXPECT_EQ(StrFormat(std::ref(string), 7), "7%");
  const auto format_list = [](const auto* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = StrFormat(*format, ap);
    va_end(ap);
    return text;
  };
  EXPECT_EQ(format_list(&string, 7), "7%");
  EXPECT_EQ(format_list(&path, 7), "7%");
}

TEST(SplitString, AppendsThePiecesThatAreNotEmpty) {
  const struct {
    std::string text;
    std::string delimiter;
    Strings pieces;
  } cases[] = {
      {",a,,b,", ",", {"a", "b"}}, {"a, b,c", ", ", {"a", "b,c"}},
      {"a", "long", {"a"}},        {"a", "", {}},
      {"aXXX", "XX", {"a"}},       {"abcababxab", "abab", {"abc", "x"}},
      {"xaba", "abab", {"xaba"}},
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

TEST(Trim, TakesTheBytesOfASet) {
  EXPECT_EQ(LeftTrim(" \ta b \t", "\t "), "a b \t");
  EXPECT_EQ(RightTrim(" \ta b \t", "\t "), " \ta b");
  EXPECT_EQ(TrimString(" \ta b \t", "\t "), "a b");
  EXPECT_EQ(LeftTrim("xyx", "yx"), "");
  EXPECT_EQ(RightTrim("xyx", "yx"), "");
  EXPECT_EQ(TrimString(" a ", ""), " a ");
}

TEST(ReplaceAll, ReplacesTheFirstOccurrenceUntilThereIsNone) {
  const struct {
    std::string text;
    std::string old_str;
    std::string new_str;
    std::string result;
  } cases[] = {
      {"a.b.", ".", "--", "a--b--"}, {"-aabb-", "ab", "", "--"},      {"aaab", "aab", "ab", "ab"},
      {"abb", "ab", "ca", "cca"},    {"abbb abbb", "ab", "a", "a a"}, {"abc", "", "x", "abc"},
      {"abc", "b", "abc", "abc"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE("'" + row.old_str + "' by '" + row.new_str + "' in '" + row.text + "'");
    EXPECT_EQ(ReplaceAll(row.text, row.old_str, row.new_str), row.result);
  }
}

TEST(GetLine, DeliversLinesWithAnyEnd) {
  const struct {
    const char* text;
    Strings lines;
  } cases[] = {
      {"a\r\nb\nc\rd", {"a\n", "b\n", "c\n"}},
      {"\n\r\r\n\r", {"\n", "\n", "\n", "\n"}},
      {"no end", {}},
      {"", {}},
      {nullptr, {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(testing::PrintToString(row.text));
    Strings lines;
    std::string line = "unchanged";
    for (const char* rest = row.text; (rest = GetLine(rest, line)) != nullptr;) {
      lines.push_back(line);
    }
    EXPECT_EQ(lines, row.lines);
    EXPECT_EQ(line, lines.empty() ? "unchanged" : lines.back());
  }
}

TEST(IsIntegerDigit, LooksAtTheFormOnly) {
  for (const char* text : {"0", "123", "0x1F", "0Xab", "0b101", "0B29", "0x", "0b", "0x0bf"}) {
    EXPECT_TRUE(IsIntegerDigit(text)) << text;
  }
  for (const char* text : {"", "12a", "-1", "+1", "1 ", " 1", "0b1f", "0b0x1", "0xg"}) {
    EXPECT_FALSE(IsIntegerDigit(text)) << text;
  }
}

TEST(Time, IsLocalAndCountsMicrosecondsWithoutZeros) {
  ASSERT_TRUE(SetEnvVar("TZ", "XYZ-5"));
  tzset();
  EXPECT_EQ(ConvertTimestamp(1735823045000052, true), "2025/01/02_18:04:05.52");
  EXPECT_EQ(ConvertTimestamp(-1500000, true), "1970/01/01_04:59:59.-500000");
  for (const char* when : {"now", "a second later"}) {
    SCOPED_TRACE(when);
    const std::string before = ConvertTimestamp(GetTimestamp(), false);
    const std::string now = GetSystemTime(false);
    const std::string after = ConvertTimestamp(GetTimestamp(), false);
    // In the layout of the other two.
    const std::string readable = StrFormat("%.4s/%.2s/%.2s_%.2s:%.2s:%.2s", &now[0], &now[4],
                                           &now[6], &now[9], &now[11], &now[13]);
    EXPECT_LE(before, readable);
    EXPECT_LE(readable, after);
    EXPECT_EQ(now.size(), 15U) << now;
    while (ConvertTimestamp(GetTimestamp(), false) == after) std::this_thread::yield();
  }
  EXPECT_TRUE(SetEnvVar("TZ", "XYZ+5"));
  tzset();
  EXPECT_EQ(GetSystemTime(false).substr(9, 2),
            ConvertTimestamp(GetTimestamp(), false).substr(11, 2));
  EXPECT_THAT(GetSystemTime(true),
              testing::MatchesRegex("[0-9]{8}_[0-9]{6}\\.(0|[1-9][0-9]{0,5})"));
}

TEST(Environment, IsSetAndRead) {
  EXPECT_TRUE(SetEnvVar("UNIT_TEST", "first"));
  EXPECT_TRUE(SetEnvVar("UNIT_TEST", "second"));
  EXPECT_EQ(GetEnvVar("UNIT_TEST"), "second");
  EXPECT_EQ(GetEnvVar("UNIT_TEST_NEVER_SET"), "");
  EXPECT_FALSE(SetEnvVar("a=b", "x"));
  EXPECT_EQ(GetLastError(), "setenv: Invalid argument\n");
}

TEST(MicroSleep, LastsAtLeastAsLongAsAskedAlsoWithSignals) {
  InFork([] {
    signal(SIGALRM, [](int) {});
    const struct itimerval often = {{0, 100000}, {0, 100000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (const int64_t microseconds : {1050000L, 1L, -3600000000L}) {
      const auto begin = std::chrono::steady_clock::now();
      MicroSleep(microseconds);
      EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::microseconds(microseconds));
    }
  });
}

}  // namespace
