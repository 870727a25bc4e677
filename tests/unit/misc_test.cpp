#include "misc.h"

#include "test_support.h"

namespace {

using namespace util;

std::string Split(const std::string& text, const std::string& delimiter) {
  Strings pieces = {"before"};
  SplitString(text, delimiter, pieces);
  return testing::PrintToString(pieces);
}

std::string Lines(const char* text) {
  std::string line = "unchanged";
  std::string all;
  for (const char* rest = text; (rest = GetLine(rest, line)) != nullptr;) all += ">" + line;
  return all.empty() ? line : all;
}

TEST(LastError, BelongsToItsThreadAndStaysUntilTheNextOne) {
  SetLastError("%s: %d", "first", 1);
  std::thread([] { EXPECT_EQ(GetLastError(), ""), SetLastError("other"); }).join();
  EXPECT_EQ(GetLastError(), "first: 1");
  SetLastError("%s, %s", GetLastError().c_str(), std::string(5000, 'x').c_str());
  EXPECT_EQ(GetLastError(), "first: 1, " + std::string(4085, 'x'));
}

TEST(Strings, AreFormattedSplitTrimmedAndReplaced) {
  const std::string large(100000, 'x');
  ExpectPairs(
      {{StrFormat("<%s %d%%>", large.c_str(), 7), "<" + large + " 7%>"},
       {StrFormat(std::string("<%s>%c-"), "a", '\0') + StrFormat(std::string()), "<a>"},
       {StrFormat("%d", 0) + StrFormat("%p", nullptr), "0(nil)"},  // not taken for argument lists
       {StrFormat("%lc", static_cast<wint_t>(0xD800)), ""},        // no character
       {Split(",a,,b,", ",") + Split("aXXX", "XX"), R"({ "before", "a", "b" }{ "before", "a" })"},
       {Split("a, b,c", ", ") + Split("a", ""), R"({ "before", "a", "b,c" }{ "before" })"},
       {LeftTrim(" \ta b \t", "\t ") + "|" + LeftTrim("xyx", "yx"), "a b \t|"},
       {RightTrim(" \ta b \t", "\t ") + "|" + RightTrim("xyx", "yx"), " \ta b|"},
       {TrimString(" \ta b \t", "\t ") + "|" + TrimString(" a ", ""), "a b| a "},
       {ReplaceAll("a.b.", ".", "--") + ReplaceAll("aabb", "ab", ""), "a--b--"},
       {ReplaceAll("aab", "ab", "b") + ReplaceAll("aaab", "aab", "b"), "bab"},
       {ReplaceAll("abc", "", "x") + ReplaceAll("abc", "b", "abc"), "abcabc"},
       {Lines("a\r\nb\nc\rd"), ">a\n>b\n>c\n"},
       {Lines("\n\r\r\n\r") + Lines("no end"), ">\n>\n>\n>\nunchanged"},
       {Lines("") + Lines(nullptr), "unchangedunchanged"}});
  std::string answers;
  for (const char* text : {"0", "123", "0x1F", "0Xab", "0b101", "0B29", "0x", "0b", "0x0bf", "",
                           "12a", "-1", "+1", "1 ", " 1", "0b1f", "0b0x1", "0xg"})
    answers += IsIntegerDigit(text) ? '+' : '-';
  EXPECT_EQ(answers, "+++++++++---------");
}

TEST(Time, IsLocalAndCountsMicrosecondsWithoutZeros) {
  EXPECT_TRUE(SetEnvVar("TZ", "") && SetEnvVar("TZ", "XYZ-5") && GetEnvVar("TZ") == "XYZ-5");
  tzset();
  ExpectPairs({{ConvertTimestamp(1735823045000052, true), "2025/01/02_18:04:05.52"},
               {ConvertTimestamp(-1500000, true), "1970/01/01_04:59:59.-500000"}});
  const std::string before = ConvertTimestamp(GetTimestamp(), false);
  std::string time = GetSystemTime(true);
  EXPECT_THAT(time, testing::MatchesRegex("[0-9]{8}_[0-9]{6}\\.(0|[1-9][0-9]{0,5})"));
  time = GetSystemTime(false).insert(13, ":").insert(11, ":").insert(6, "/").insert(4, "/");
  EXPECT_TRUE(before <= time && time <= ConvertTimestamp(GetTimestamp(), false)) << time;
  EXPECT_TRUE(!SetEnvVar("a=b", "x") && GetEnvVar("UNIT_TEST_NEVER_SET").empty());
  EXPECT_EQ(GetLastError(), "setenv: Invalid argument\n");
}

TEST(MicroSleep, GoesOnAfterSignalsAndEndsAtOnceWhenNegative) {
  EXPECT_TRUE(HoldsInFork([] {
    static volatile sig_atomic_t signals = 0;
    MicroSleep(-1);
    signal(SIGALRM, [](int) { (signals = signals + 1) == 3 ? _exit(0) : void(); });
    const struct itimerval often = {{0, 10000}, {0, 10000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    MicroSleep(3600500000);
    FAIL();
  }));
}

}  // namespace
