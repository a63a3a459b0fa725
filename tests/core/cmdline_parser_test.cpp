// The command-line parser: values by kind, failures, help and completion.
#include "support/fault_support.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/cmdline.hpp>

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

namespace norvane {
namespace {

// One option of every kind plus files.
class CmdlineParser : public ::testing::Test {
protected:
  CmdlineParser() : parser("tool", "Converts things") {
    parser.add_option("v", "verbose", "Talk more", false);
    parser.add_option("c", "count", "How many", 0);
    parser.add_option("r", "ratio", "How much", 0.25);
    parser.add_option("m", "mode", "Which way", "fast");
    parser.add_option("files");
  }

  // "name=value#count" for each option, in declaration order.
  std::string results() {
    std::string text;
    for (const std::string name : {"verbose", "count", "ratio", "mode", "files"})
      text += name + "=" + parser.value(name) + "#" + std::to_string(parser.count(name)) + " ";
    return text;
  }

  cmdline_parser parser;
  test::log_capture log;
};

TEST_F(CmdlineParser, ValuesByKind) {
  // Reals keep std::to_string's six decimals minus trailing zeros, but the
  // point; a given option counts each time and the last value wins; unknown
  // options are ignored; an empty vector gives the defaults.
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"tool"}, "verbose=false#0 count=0#0 ratio=0.25#0 mode=fast#0 files=#0 "},
      {{}, "verbose=false#0 count=0#0 ratio=0.25#0 mode=fast#0 files=#0 "},
      {{"tool", "-v", "--count", "-12", "--ratio=3", "-m", "slow", "a", "b"},
       "verbose=true#1 count=-12#1 ratio=3.#1 mode=slow#1 files=a,b#2 "},
      {{"tool", "-c", "1", "--count", "2", "-vv", "--ratio", "1e3", "", "--colour", "-x", "", "b"},
       "verbose=true#2 count=2#2 ratio=1000.#1 mode=fast#0 files=,,b#3 "},
      {{"tool", "--ratio", "0.1234567"}, "verbose=false#0 count=0#0 ratio=0.123457#1 mode=fast#0 files=#0 "},
      {{"tool", "--ratio", "0.0000001", "--mode", "a b"},
       "verbose=false#0 count=0#0 ratio=0.#1 mode=a b#1 files=#0 "}};
  for (const auto& [arguments, expected] : rows) {
    EXPECT_TRUE(parser.parse(arguments));
    EXPECT_EQ(results(), expected);
  }
  EXPECT_EQ(parser.value("colour"), "");
  EXPECT_TRUE(log.entries().empty());
  // Declared after a parse: no entry until the next one.
  parser.add_option("l", "level", "Depth", 3);
  EXPECT_EQ(parser.value("level"), "");
  EXPECT_TRUE(parser.parse({"tool"}) && parser.value("level") == "3");
}

TEST_F(CmdlineParser, MalformedCommandLinesFailWithOneMessageAndNoResults) {
  for (const auto& [arguments, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"tool", "--count", "12x"}, "Argument \u201812x\u2019 failed to parse"},
           {{"tool", "a", "--count"}, "Option \u2018count\u2019 is missing an argument"},
           {{"tool", "--verbose=maybe"}, "Argument \u2018maybe\u2019 failed to parse"}}) {
    ASSERT_TRUE(parser.parse({"tool", "-v"}));
    test::log_capture one;
    EXPECT_FALSE(parser.parse(arguments)) << message;
    EXPECT_EQ(one.entries(), (std::vector<test::log_entry>{{"error", message}}));
    EXPECT_EQ(results(), "verbose=#0 count=#0 ratio=#0 mode=#0 files=#0 ");
  }
}

TEST(CmdlineParserAlone, DefaultsOfEveryKindAndOnePositionalName) {
  cmdline_parser parser("tool", "");
  parser.add_option("", "on", "", true);
  parser.add_option("", "negative", "", -7);
  parser.add_option("", "whole", "", 2.0);
  parser.add_option("", "name", "", std::string_view("a b,c"));
  EXPECT_TRUE(parser.parse({"tool", "stray"}));
  EXPECT_EQ(parser.value("on") + parser.value("negative") + parser.value("whole") + parser.value("name"),
            "true-72.a b,c");
  EXPECT_EQ(parser.value("stray"), "");  // no positional parameter: stray words are not collected
  parser.add_option("inputs");
  parser.add_option("outputs");  // a second declaration replaces the name
  EXPECT_TRUE(parser.parse({"tool", "a", "b"}));
  EXPECT_EQ(parser.value("outputs") + "|" + parser.value("inputs"), "a,b|");
}

TEST_F(CmdlineParser, HelpAndBashCompletionOfAProgramWithoutCommands) {
  const auto help = parser.help();
  EXPECT_EQ(help.rfind("Converts things\nUsage:\n  tool [OPTION...] positional parameters\n\n", 0), 0u)
      << help;
  for (const char* line : {"  -v, --verbose ", "  -m, --mode arg ", "How many (default: 0)"})
    EXPECT_NE(help.find(line), std::string::npos) << line << "\n" << help;
  // Option names, an option's choices, nothing for a number, files for the
  // positional parameter; bash splits "--mode=f" into three words.
  parser.set_choices("mode", {"fast", "safe", "slow"});
  const test::temp_dir dir;
  test::write_file(dir / "script", parser.completion_script(cmdline_parser::shell::bash));
  test::write_file(dir / "in.txt", "");
  for (const auto& [line, expected] : {std::pair{"tool --ver", "--verbose"},
                                       {"tool -m s", "safe slow"},
                                       {"tool --mode = f", "fast"},
                                       {"tool --count ", ""},
                                       {"tool -v in", "in.txt"},
                                       {"tool in.txt --r", "--ratio"}}) {
    const std::string script = "source ./script; read -ra COMP_WORDS <<< '" + std::string(line) + "'; [[ '" +
                               line +
                               "' == *' ' ]] && COMP_WORDS+=(''); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " +
                               "_tool; echo ${COMPREPLY[*]} >&2";
    const auto child = test::run_in_child([&]() -> std::string {
      std::filesystem::current_path(dir.path());
      ::execlp("bash", "bash", "--norc", "-c", script.c_str(), nullptr);
      return "exec failed";
    });
    EXPECT_EQ(child.errors, std::string(expected) + "\n") << line << ": " << child.describe();
  }
}

}  // namespace
}  // namespace norvane
