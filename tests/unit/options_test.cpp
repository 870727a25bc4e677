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

// What one declaration of a flag ('f'), a single value ('v') or a list ('l') makes of `line`: the
// text of a failure, the values in brackets, a "+" if it was found, and what is left behind a "/".
std::string Parse(char form, const std::string& line, const std::string& name,
                  const std::string& long_name, bool* depend = nullptr) {
  Options options = MakeOptions(line);
  bool found = form != 'f';
  Strings list(form == 'v' ? 1 : 0, "default");
  const bool is_good = form == 'f' ? options.Parse(name, long_name, "", depend, found, false)
                       : form == 'l'
                           ? options.Parse(name, long_name, "", "", depend, &found, list, false)
                           : options.Parse(name, long_name, "", "", depend, &found, list[0], false);
  std::string result = is_good ? "" : util::GetLastError();
  for (const std::string& value : list) result += value == "default" ? "" : "[" + value + "]";
  const std::string left = options.GetErrorOptions(true);
  return result + (found && is_good ? "+/" : "/") + left.substr(left.empty() ? 0 : 20);
}

TEST(Options, TakeTheirArgumentForms) {
  // The arguments, then what a flag, a single value and a list make of them.
  const Strings cases[] = {
      {"", "/", "/", "/"},
      {"@ a", "+/a'", "[a]+/", "[a]+/"},
      {"x @ a b -v c", "+/x a b -v c'", "[a]+/x b -v c'", "[a][b]+/x -v c'"},
      {"@=a b", "/@=a b'", "[a]+/b'", "[a][b]+/"},
      {"@=-x", "/@=-x'", "[-x]+/", "[-x]+/"},
      {"@=a=b", "/@=a=b'", "[a=b]+/", "[a=b]+/"},
      {"@= a", "/@= a'", "/@= a'", "/@= a'"},
      {"@", "+/", "/@'", "/@'"},
      {"@ -x", "+/-x'", "/@ -x'", "/@ -x'"},
      {"@ '' a", "+/a'", "[]+/a'", "[][a]+/"},
      {"@ a @ b c", "+/a b c'", "[b]+/c'", "[a][b][c]+/"},
      {"@ @ a @", "+/a'", "[a]+/@ @'", "[a]+/@ @'"},
      {"@=a -x @=b", "/@=a -x @=b'", "[b]+/-x'", "[a][b]+/-x'"},
      {"@x a @x=a -- o", "/@x a @x=a -- o'", "/@x a @x=a -- o'", "/@x a @x=a -- o'"}};
  for (const Strings& row : cases) {
    for (const Strings& names : {Strings{"-o", ""}, Strings{"", "--out"}}) {
      const auto at = [&](size_t i) { return util::ReplaceAll(row[i], "@", names[0] + names[1]); };
      ExpectPairs({{Parse('f', at(0), names[0], names[1]), at(1)},
                   {Parse('v', at(0), names[0], names[1]), at(2)},
                   {Parse('l', at(0), names[0], names[1]), at(3)}});
    }
  }
}

TEST(Options, KnowTwoNamesWordsAndDependenceAndTurnDownInvalidNames) {
  bool missing = false;
  const std::string none = "Short and long options are empty/";
  ExpectPairs(
      {{Parse('v', "--out a -o b", "-o", "--out"), "[a]+/"},
       {Parse('l', "--out a -o b", "-o", "--out"), "[b][a]+/"},
       {Parse('f', "make make -x", "make", ""), "+/make -x'"},
       {Parse('f', "-x make", "make", "--make"), "/-x make'"},
       {Parse('f', "-o --out", "-o", "--out", &missing), "Unsupported option '-o'/"},
       {Parse('v', "--out=a", "-o", "--out", &missing), "Unsupported option '--out'[a]/"},
       {Parse('l', "-o a", "-o", "--out", &missing), "Unsupported option '-o'[a]/"},
       {Parse('f', "", "-o", "--out", &missing) + Parse('v', "", "-o", "", &missing), "//"},
       {Parse('f', "", "", "") + Parse('v', "- a -- b", "-", "--"), none + none + "- a -- b'"},
       {Parse('v', "oo=a", "oo", "--out"), "Option 'oo' is invalid/oo=a'"},
       {Parse('l', "--=a", "--", "--out"), "Option '--' is invalid/--=a'"},
       {Parse('l', "--o a", "--o", ""), "Option '--o' is invalid/--o a'"},
       {Parse('v', "---out=a", "-", "---out"), "Option '---out' is invalid/---out=a'"},
       {Parse('l', "-o a -out b", "-o", "-out"), "Option '-out' is invalid[a]/-out b'"}});
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
  EXPECT_TRUE(number == 12 && other == 6 && !found && list == std::vector<int>({0, 1, 3}));
  Strings words = {"before"};
  options.GetNonoptions(words);
  EXPECT_EQ(words, (Strings{"before", "", "a", "c"}));
  ExpectPairs({{options.GetErrorOptions(true), "Unsupported option 'a -x --y=b c'"},
               {options.GetErrorOptions(false), "Unsupported option '-x --y=b'"},
               {MakeOptions("''").GetErrorOptions(true), ""}});
}

TEST(Options, TakeAHundredThousandValuesInOrder) {
  std::string line = "--x";
  std::string values;
  for (int i = 0; i < 100000; ++i) {
    line += (i % 2 == 0 ? " -o=" : " -o ") + std::to_string(i);
    values += "[" + std::to_string(i) + "]";
  }
  EXPECT_TRUE(Parse('l', line, "-o", "") == values + "+/--x'");
  EXPECT_EQ(Parse('v', line, "-o", ""), "[99999]+/--x'");
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
