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

enum class Form { kFlag, kValue, kList };

// What a declaration made of a command line.
struct Parsed {
  bool is_good;
  bool is_found = false;
  Strings values = {};
  std::string left;  // the arguments left, as the report of unsupported options has them
};

// Declares one option on the arguments of `line`.
Parsed Parse(Form form, const std::string& line, const std::string& name,
             const std::string& long_name, bool* depend = nullptr) {
  Options options = MakeOptions(line);
  Parsed parsed;
  std::string value = "default";
  if (form == Form::kFlag) {
    parsed.is_good = options.Parse(name, long_name, "", depend, parsed.is_found, false);
  } else if (form == Form::kList) {
    parsed.is_good =
        options.Parse(name, long_name, "", "", depend, &parsed.is_found, parsed.values, false);
  } else {
    parsed.is_good = options.Parse(name, long_name, "", "", depend, &parsed.is_found, value, false);
    if (value != "default") parsed.values = {value};
  }
  const std::string report = options.GetErrorOptions(true);
  if (!report.empty()) parsed.left = report.substr(20, report.size() - 21);
  return parsed;
}

TEST(Options, TakeTheirArgumentForms) {
  const struct {
    Form form;
    std::string line;  // "@" stands for the name
    Strings values;
    std::string left;
  } rows[] = {
      {Form::kFlag, "", {}, ""},
      {Form::kFlag, "x @ a @", {}, "x a"},
      {Form::kFlag, "@=a @= @x", {}, "@=a @= @x"},
      {Form::kValue, "", {}, ""},
      {Form::kValue, "x @ a b -v c", {"a"}, "x b -v c"},
      {Form::kValue, "@=a b", {"a"}, "b"},
      {Form::kValue, "@=-x", {"-x"}, ""},
      {Form::kValue, "@=a=b", {"a=b"}, ""},
      {Form::kValue, "@= a", {}, "@= a"},
      {Form::kValue, "@", {}, "@"},
      {Form::kValue, "@ -x", {}, "@ -x"},
      {Form::kValue, "@ '' a", {""}, "a"},
      {Form::kValue, "@ a @ b c", {"b"}, "c"},
      {Form::kValue, "@ @ a @", {"a"}, "@ @"},
      {Form::kValue, "@=a -x @=b", {"b"}, "-x"},
      {Form::kValue, "@x a @x=a -- o", {}, "@x a @x=a -- o"},
      {Form::kList, "", {}, ""},
      {Form::kList, "x @ a b -v c", {"a", "b"}, "x -v c"},
      {Form::kList, "@=a b", {"a", "b"}, ""},
      {Form::kList, "@=-x", {"-x"}, ""},
      {Form::kList, "@ -x @= @", {}, "@ -x @= @"},
      {Form::kList, "@ '' a", {"", "a"}, ""},
      {Form::kList, "@ a @ b c", {"a", "b", "c"}, ""},
      {Form::kList, "@ @ a @", {"a"}, "@ @"},
      {Form::kList, "@x a @x=a -- o", {}, "@x a @x=a -- o"},
  };
  for (const auto& row : rows) {
    for (const auto& [name, long_name] : {std::pair{"-o", ""}, std::pair{"", "--out"}}) {
      const std::string either = std::string(name) + long_name;
      const std::string line = util::ReplaceAll(row.line, "@", either);
      SCOPED_TRACE(line + " as form " + std::to_string(static_cast<int>(row.form)));
      const Parsed parsed = Parse(row.form, line, name, long_name);
      EXPECT_TRUE(parsed.is_good);
      EXPECT_EQ(parsed.values, row.values);
      EXPECT_EQ(parsed.left, util::ReplaceAll(row.left, "@", either));
      EXPECT_EQ(parsed.is_found, row.left != row.line);
    }
  }
}

TEST(Options, TakeTheShortNameBeforeTheLongOne) {
  EXPECT_EQ(Parse(Form::kValue, "--out a -o b", "-o", "--out").values, Strings({"a"}));
  EXPECT_EQ(Parse(Form::kList, "--out a -o b", "-o", "--out").values, Strings({"b", "a"}));
}

TEST(Options, TakeAWordOnlyAtTheFront) {
  EXPECT_EQ(Parse(Form::kFlag, "make make -x", "make", "").left, "make -x");
  EXPECT_EQ(Parse(Form::kFlag, "-x make", "make", "--make").left, "-x make");
}

TEST(Options, SayWhyADeclarationFails) {
  bool is_there = false;
  const std::string empty = "Short and long options are empty";
  const struct {
    Form form;
    std::string line;
    std::string name;
    std::string long_name;
    bool* depend;
    std::string last_error;
    Strings values;
    std::string left;
  } rows[] = {
      {Form::kFlag, "-o --out", "-o", "--out", &is_there, "Unsupported option '-o'", {}, ""},
      {Form::kValue, "--out=a", "-o", "--out", &is_there, "Unsupported option '--out'", {"a"}, ""},
      {Form::kList, "-o a", "-o", "--out", &is_there, "Unsupported option '-o'", {"a"}, ""},
      {Form::kFlag, "x", "", "", nullptr, empty, {}, "x"},
      {Form::kValue, "- a -- b", "-", "--", nullptr, empty, {}, "- a -- b"},
      {Form::kValue, "oo=a", "oo", "--out", nullptr, "Option 'oo' is invalid", {}, "oo=a"},
      {Form::kList, "--=a", "--", "--out", nullptr, "Option '--' is invalid", {}, "--=a"},
      {Form::kValue, "--o a", "--o", "", nullptr, "Option '--o' is invalid", {}, "--o a"},
      {Form::kList, "---o=a", "-", "---o", nullptr, "Option '---o' is invalid", {}, "---o=a"},
      {Form::kValue, "-o a -x b", "-o", "-xx", nullptr, "Option '-xx' is invalid", {"a"}, "-x b"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    const Parsed parsed = Parse(row.form, row.line, row.name, row.long_name, row.depend);
    EXPECT_FALSE(parsed.is_good);
    EXPECT_EQ(util::GetLastError(), row.last_error);
    EXPECT_EQ(parsed.values, row.values);
    EXPECT_EQ(parsed.left, row.left);
  }
  EXPECT_TRUE(Parse(Form::kFlag, "", "-o", "--out", &is_there).is_good) << "it is not given";
  EXPECT_TRUE(Parse(Form::kValue, "", "-o", "", &is_there).is_good) << "it is not given";
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

TEST(OptionsHelp, IsWrappedAsItIsDeclared) {
  Options options = MakeOptions("");
  bool flag = false;
  std::string text;
  EXPECT_EQ(options.GetHelpInfo(),
            "Usage: tool [options] \n\nDescription: No description provided.\n");
  options.SetScreenWidth(40);
  options.SetScreenWidth(0);
  options.SetMessageOffset(22);
  options.SetMessageOffset(-1);
  options.SetDescription("Makes\t things,\nand  more of\n them. ");
  options.SetGroupTitle("Options:");
  options.Parse("-fatbin", "--fatbin-file", "", "The fat binary, and\n all of that came with it.",
                nullptr, nullptr, text, true);
  options.Parse("-root", "--root", "<PATH>", "Root.", nullptr, nullptr, text, true);
  options.Parse("-h", "--hidden", "", "Hidden.", nullptr, nullptr, text, false);
  options.SetGroupTitle("Other Options:");
  options.Parse("-f", "", "", nullptr, flag, true);
  options.Parse("-", "--list", "", "Longer_than_the_screen", nullptr, nullptr, text, true);
  EXPECT_EQ(options.GetHelpInfo(), R"(Usage: tool [options] 

Description: Makes things, and more of 
             them. 

Options:
 -fatbin, --fatbin-file <value> 
                      The fat binary, 
                      and all of that came 
                      with it.
 -root, --root <PATH> Root.

Other Options:
 -f                   
 --list <value>       
                      Longer_than_the_screen
)");
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
