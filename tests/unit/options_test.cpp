#include "options.h"

#include "test_support.h"

namespace {

using util::Options;

// The arguments are the words of `line`; '' is an empty one.
Options MakeOptions(const std::string& line) {
  static std::vector<const char*> argv;
  Strings words;
  util::SplitString(line, " ", words);
  argv.assign(1, "tool");
  for (const std::string& word : words) argv.push_back(word == "''" ? "" : word.c_str());
  return Options(static_cast<int>(argv.size()), argv.data());
}

// What a declaration made of a command line.
struct Result {
  Strings values = {};
  bool is_found = false;
  std::string left = {};   // the arguments left, as the report of unsupported options has them
  std::string error = {};  // empty unless the declaration failed

  bool operator==(const Result& other) const {
    return std::tie(values, is_found, left, error) ==
           std::tie(other.values, other.is_found, other.left, other.error);
  }
  friend std::ostream& operator<<(std::ostream& out, const Result& result) {
    return out << (result.is_found ? "found, values " : "not found, values ")
               << testing::PrintToString(result.values) << ", left '" << result.left << "', error '"
               << result.error << "'";
  }
};

enum class Form { kFlag, kValue, kList };

// Declares one option on the arguments of `line`.
Result Parse(Form form, const std::string& line, const std::string& name,
             const std::string& long_name, bool* depend = nullptr) {
  Options options = MakeOptions(line);
  Result result;
  std::string value = "default";
  bool& found = result.is_found;
  const bool is_good =
      form == Form::kFlag ? options.Parse(name, long_name, "", depend, found, false)
      : form == Form::kValue
          ? options.Parse(name, long_name, "", "", depend, &found, value, false)
          : options.Parse(name, long_name, "", "", depend, &found, result.values, false);
  if (value != "default") result.values = {value};
  if (!is_good) result.error = util::GetLastError();
  const std::string report = options.GetErrorOptions(true);
  if (!report.empty()) result.left = report.substr(20, report.size() - 21);
  return result;
}

TEST(Options, TakeTheirArgumentForms) {
  const struct {
    std::string line;  // "@" stands for the name
    Result flag;
    Result value;
    Result list;
  } cases[] = {
      {"", {}, {}, {}},
      {"@ a", {{}, true, "a"}, {{"a"}, true}, {{"a"}, true}},
      {"x @ a b -v c",
       {{}, true, "x a b -v c"},
       {{"a"}, true, "x b -v c"},
       {{"a", "b"}, true, "x -v c"}},
      {"@=a b", {{}, false, "@=a b"}, {{"a"}, true, "b"}, {{"a", "b"}, true}},
      {"@=-x", {{}, false, "@=-x"}, {{"-x"}, true}, {{"-x"}, true}},
      {"@=a=b", {{}, false, "@=a=b"}, {{"a=b"}, true}, {{"a=b"}, true}},
      {"@= a", {{}, false, "@= a"}, {{}, false, "@= a"}, {{}, false, "@= a"}},
      {"@", {{}, true}, {{}, false, "@"}, {{}, false, "@"}},
      {"@ -x", {{}, true, "-x"}, {{}, false, "@ -x"}, {{}, false, "@ -x"}},
      {"@ '' a", {{}, true, "a"}, {{""}, true, "a"}, {{"", "a"}, true}},
      {"@ a @ b c", {{}, true, "a b c"}, {{"b"}, true, "c"}, {{"a", "b", "c"}, true}},
      {"@ @ a @", {{}, true, "a"}, {{"a"}, true, "@ @"}, {{"a"}, true, "@ @"}},
      {"@=a -x @=b", {{}, false, "@=a -x @=b"}, {{"b"}, true, "-x"}, {{"a", "b"}, true, "-x"}},
      {"@x a @x=a -- o",
       {{}, false, "@x a @x=a -- o"},
       {{}, false, "@x a @x=a -- o"},
       {{}, false, "@x a @x=a -- o"}},
  };
  for (const auto& row : cases) {
    for (const auto& [name, long_name] : {std::pair{"-o", ""}, std::pair{"", "--out"}}) {
      const std::string either = std::string(name) + long_name;
      const auto with_name = [&](Result result) {
        result.left = util::ReplaceAll(result.left, "@", either);
        return result;
      };
      const std::string line = util::ReplaceAll(row.line, "@", either);
      SCOPED_TRACE(line);
      EXPECT_EQ(Parse(Form::kFlag, line, name, long_name), with_name(row.flag));
      EXPECT_EQ(Parse(Form::kValue, line, name, long_name), with_name(row.value));
      EXPECT_EQ(Parse(Form::kList, line, name, long_name), with_name(row.list));
    }
  }
}

TEST(Options, TakeTheShortNameBeforeTheLongOne) {
  EXPECT_EQ(Parse(Form::kValue, "--out a -o b", "-o", "--out"), (Result{{"a"}, true}));
  EXPECT_EQ(Parse(Form::kList, "--out a -o b", "-o", "--out"), (Result{{"b", "a"}, true}));
}

TEST(Options, TakeAWordOnlyAtTheFront) {
  EXPECT_EQ(Parse(Form::kFlag, "make make -x", "make", ""), (Result{{}, true, "make -x"}));
  EXPECT_EQ(Parse(Form::kFlag, "-x make", "make", "--make"), (Result{{}, false, "-x make"}));
}

TEST(Options, ReportWhatTheyDependOn) {
  bool is_there = false;
  const std::string error = "Unsupported option ";
  EXPECT_EQ(Parse(Form::kFlag, "-o --out", "-o", "--out", &is_there),
            (Result{{}, true, "", error + "'-o'"}));
  EXPECT_EQ(Parse(Form::kValue, "--out=a", "-o", "--out", &is_there),
            (Result{{"a"}, true, "", error + "'--out'"}));
  EXPECT_EQ(Parse(Form::kList, "-o a", "-o", "--out", &is_there),
            (Result{{"a"}, true, "", error + "'-o'"}));
  EXPECT_EQ(Parse(Form::kFlag, "", "-o", "--out", &is_there), Result());
  EXPECT_EQ(Parse(Form::kValue, "", "-o", "", &is_there), Result());
}

TEST(Options, RefuseInvalidNames) {
  const std::string empty = "Short and long options are empty";
  EXPECT_EQ(Parse(Form::kFlag, "", "", ""), (Result{{}, false, "", empty}));
  EXPECT_EQ(Parse(Form::kValue, "- a -- b", "-", "--"), (Result{{}, false, "- a -- b", empty}));
  EXPECT_EQ(Parse(Form::kValue, "oo=a", "oo", "--out"),
            (Result{{}, false, "oo=a", "Option 'oo' is invalid"}));
  EXPECT_EQ(Parse(Form::kList, "--=a", "--", "--out"),
            (Result{{}, false, "--=a", "Option '--' is invalid"}));
  EXPECT_EQ(Parse(Form::kValue, "--o a", "--o", ""),
            (Result{{}, false, "--o a", "Option '--o' is invalid"}));
  EXPECT_EQ(Parse(Form::kList, "---out=a", "-", "---out"),
            (Result{{}, false, "---out=a", "Option '---out' is invalid"}));
  EXPECT_EQ(Parse(Form::kValue, "-o a -out b", "-o", "-out"),
            (Result{{"a"}, false, "-out b", "Option '-out' is invalid"}));
}

// Has no default constructor, and its conversion throws at a negative number.
struct Percentage {
  explicit Percentage(int initial) : number(initial) {}
  friend std::istream& operator>>(std::istream& in, Percentage& value) {
    in >> value.number;
    return value.number < 0 ? throw std::out_of_range("negative") : in;
  }
  int number;
};

struct Size : Percentage {
  Size() : Percentage(0) {}
};

TEST(Options, KeepWhatIsNotTakenWhenAConversionThrows) {
  Options options = MakeOptions("a --number 1 --number=-1 b --list 1 2 --list=-1 4 c");
  Percentage number(0);
  EXPECT_THROW(options.Parse("", "--number", "", "", nullptr, nullptr, number, false),
               std::out_of_range);
  EXPECT_EQ(number.number, 1);
  std::vector<Size> list;
  EXPECT_THROW(options.Parse("", "--list", "", "", nullptr, nullptr, list, false),
               std::out_of_range);
  EXPECT_EQ(list.size(), 2U);
  EXPECT_EQ(options.GetErrorOptions(true), "Unsupported option 'a --number=-1 b --list=-1 4 c'");
}

TEST(Options, ConvertWholeTextsOnlyAndTellWhatIsLeft) {
  Options options = MakeOptions("'' a -x --int 12 --int 3x --list 1 x 2.5 3 --y=b c");
  int number = 5;
  int other = 6;
  bool found = true;
  std::vector<int> list = {0};
  options.Parse("", "--int", "", "", nullptr, nullptr, number, false);
  options.Parse("-f", "", "", nullptr, found, false);
  EXPECT_TRUE(found) << "a flag that is not given";
  options.Parse("", "--none", "", "", nullptr, &found, other, false);
  options.Parse("", "--list", "", "", nullptr, nullptr, list, false);
  EXPECT_EQ(number, 12);
  EXPECT_EQ(other, 6);
  EXPECT_FALSE(found);
  EXPECT_EQ(list, std::vector<int>({0, 1, 3}));
  Strings words = {"before"};
  options.GetNonoptions(words);
  EXPECT_EQ(words, (Strings{"before", "", "a", "c"}));
  EXPECT_EQ(options.GetErrorOptions(true), "Unsupported option 'a -x --y=b c'");
  EXPECT_EQ(options.GetErrorOptions(false), "Unsupported option '-x --y=b'");
  EXPECT_EQ(MakeOptions("''").GetErrorOptions(true), "");
}

TEST(Options, TakeAHundredThousandValuesInOrder) {
  std::string line = "--x";
  Strings values;
  for (int i = 0; i < 100000; ++i) {
    line += (i % 2 == 0 ? " -o=" : " -o ") + std::to_string(i);
    values.push_back(std::to_string(i));
  }
  EXPECT_EQ(Parse(Form::kList, line, "-o", ""), (Result{values, true, "--x"}));
  EXPECT_EQ(Parse(Form::kValue, line, "-o", ""), (Result{{"99999"}, true, "--x"}));
}

TEST(OptionsHelp, IsWrappedAsItIsDeclared) {
  Options options = MakeOptions("");
  bool flag = false;
  std::string text(60, 'w');
  options.SetDescription("Makes\t things,\nand  more " + text + " of them. ");
  options.SetGroupTitle("Options:");
  options.SetScreenWidth(0);
  options.SetMessageOffset(-1);
  options.Parse(
      "-fatbin", "--embedded-fatbin", "<FILE>",
      "Specify the name of an C include file that defines an embedded fat binary descriptor that "
      "will hold all 'internal' images. When this option is not used, all 'internal' images are "
      "ignored and no embedded fat binary file will be generated.",
      nullptr, nullptr, text, true);
  options.Parse("-rocm-path", "--rocm-path", "<PATH>", "Root.", nullptr, nullptr, text, true);
  options.Parse("-h", "--hidden", "", "Hidden.", nullptr, nullptr, text, false);
  options.SetGroupTitle("Other Options:");
  options.Parse("-f", "", "", nullptr, flag, true);
  options.Parse("-", "--list", "", text + "wwwww", nullptr, nullptr, text, true);
  EXPECT_EQ(options.GetHelpInfo(), R"(Usage: tool [options] 

Description: Makes things, and more )" +
                                       text + R"( 
             of them. 

Options:
 -fatbin, --embedded-fatbin <FILE> 
                                Specify the name of an C include file that defines an embedded 
                                fat binary descriptor that will hold all 'internal' images. When 
                                this option is not used, all 'internal' images are ignored and no 
                                embedded fat binary file will be generated.
 -rocm-path, --rocm-path <PATH> Root.

Other Options:
 -f                             
 --list <value>                 
                                )" + text +
                                       "wwwww\n");
  options.ClearDescription();
  options.SetMessageOffset(3);
  options.SetScreenWidth(9);
  options.Parse("-f", "", "ab cd\vefghi jkl mn opq", nullptr, flag, true);
  options.SetScreenWidth(3);
  options.Parse("-f", "", "a b", nullptr, flag, true);
  EXPECT_EQ(options.GetHelpInfo(),
            "Usage: tool [options] \n\n -fab \n   cd\vefghi jkl \n   mn opq\n -f\n   a \n   b\n");
}

}  // namespace
