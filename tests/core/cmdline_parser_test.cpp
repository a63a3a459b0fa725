#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/cmdline.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace norvane {
namespace {

// The declarations most tests share: one option of every kind plus files.
class CmdlineParser : public ::testing::Test {
protected:
  CmdlineParser() : parser("tool", "Converts things") {
    parser.add_option("v", "verbose", "Talk more", false);
    parser.add_option("c", "count", "How many", 0);
    parser.add_option("r", "ratio", "How much", 0.25);
    parser.add_option("m", "mode", "Which way", "fast");
    parser.add_option("files");
  }

  cmdline_parser parser;
  test::log_capture log;
};

TEST_F(CmdlineParser, DefaultsWhenNothingIsGiven) {
  ASSERT_TRUE(parser.parse({"tool"}));
  EXPECT_EQ(parser.count("verbose"), 0u);
  EXPECT_EQ(parser.value("verbose"), "false");
  EXPECT_EQ(parser.count("count"), 0u);
  EXPECT_EQ(parser.value("count"), "0");
  EXPECT_EQ(parser.value("ratio"), "0.25");
  // A string literal default is text, not a flag that happens to be true.
  EXPECT_EQ(parser.value("mode"), "fast");
  EXPECT_EQ(parser.count("files"), 0u);
  EXPECT_EQ(parser.value("files"), "");
  EXPECT_TRUE(log.entries().empty());
}

TEST_F(CmdlineParser, GivenValuesByKind) {
  ASSERT_TRUE(parser.parse({"tool", "-v", "--count", "-12", "--ratio=3", "-m", "slow", "a", "b"}));
  EXPECT_EQ(parser.count("verbose"), 1u);
  EXPECT_EQ(parser.value("verbose"), "true");
  EXPECT_EQ(parser.count("count"), 1u);
  EXPECT_EQ(parser.value("count"), "-12");
  // Trailing zeros go, the point stays.
  EXPECT_EQ(parser.value("ratio"), "3.");
  EXPECT_EQ(parser.value("mode"), "slow");
  EXPECT_EQ(parser.count("files"), 2u);
  EXPECT_EQ(parser.value("files"), "a,b");
}

TEST_F(CmdlineParser, RealTexts) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"1.5", "1.5"},
      {"2.0", "2."},
      {"1e3", "1000."},
      {"-0.125", "-0.125"},
      {"0", "0."},
      // Six decimals and no more: what std::to_string keeps.
      {"0.1234567", "0.123457"},
      {"0.0000001", "0."}};
  for (const auto& [given, expected] : cases) {
    ASSERT_TRUE(parser.parse({"tool", "--ratio", given})) << given;
    EXPECT_EQ(parser.value("ratio"), expected) << given;
  }
}

TEST_F(CmdlineParser, UnknownOptionsAreIgnoredSilently) {
  ASSERT_TRUE(parser.parse({"tool", "--colour", "-x", "--count=4", "in.txt"}));
  EXPECT_EQ(parser.value("count"), "4");
  EXPECT_EQ(parser.value("files"), "in.txt");
  EXPECT_EQ(parser.count("colour"), 0u);
  EXPECT_EQ(parser.value("colour"), "");
  EXPECT_TRUE(log.entries().empty());
}

TEST_F(CmdlineParser, MalformedCommandLinesFailWithOneMessage) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"tool", "--count", "abc"}, "Argument \u2018abc\u2019 failed to parse"},
      {{"tool", "--ratio", "x1.5"}, "Argument \u2018x1.5\u2019 failed to parse"},
      {{"tool", "--count", "12x"}, "Argument \u201812x\u2019 failed to parse"},
      {{"tool", "--count", "99999999999"}, "Argument \u201899999999999\u2019 failed to parse"},
      {{"tool", "a", "--count"}, "Option \u2018count\u2019 is missing an argument"},
      {{"tool", "--verbose=maybe"}, "Argument \u2018maybe\u2019 failed to parse"},
  };
  for (const auto& [arguments, message] : cases) {
    test::log_capture one;
    EXPECT_FALSE(parser.parse(arguments)) << message;
    EXPECT_EQ(one.entries(), (std::vector<test::log_entry>{{"error", message}}));
    // A failed parse leaves no results from an earlier one.
    EXPECT_EQ(parser.value("count"), "");
    EXPECT_EQ(parser.value("mode"), "");
  }
}

TEST_F(CmdlineParser, AwkwardButValidCommandLines) {
  // Given twice: both count, the last value wins.
  ASSERT_TRUE(parser.parse({"tool", "-c", "1", "--count", "2", "-vv"}));
  EXPECT_EQ(parser.count("count"), 2u);
  EXPECT_EQ(parser.value("count"), "2");
  EXPECT_EQ(parser.count("verbose"), 2u);
  // Empty strings and very long texts pass through untouched.
  const std::string long_text(1 << 20, 'x');
  ASSERT_TRUE(parser.parse({"tool", "", "--mode", long_text, "", "b"}));
  EXPECT_EQ(parser.value("mode"), long_text);
  EXPECT_EQ(parser.value("files"), ",,b");
  EXPECT_EQ(parser.count("files"), 3u);
  // Reals are read the way a stream reads them: a number followed by
  // anything else still counts as that number.
  ASSERT_TRUE(parser.parse({"tool", "--ratio", "1.5x"}));
  EXPECT_EQ(parser.value("ratio"), "1.5");
  // An empty vector has no program name and no options: defaults only.
  ASSERT_TRUE(parser.parse({}));
  EXPECT_EQ(parser.value("count"), "0");
  EXPECT_TRUE(log.entries().empty());
}

TEST_F(CmdlineParser, EachParseStartsAfresh) {
  ASSERT_TRUE(parser.parse({"tool", "-v", "x"}));
  ASSERT_TRUE(parser.parse({"tool"}));
  EXPECT_EQ(parser.count("verbose"), 0u);
  EXPECT_EQ(parser.count("files"), 0u);
  // Declared after the parse: no entry until the next one.
  parser.add_option("l", "level", "Depth", 3);
  EXPECT_EQ(parser.value("level"), "");
  ASSERT_TRUE(parser.parse({"tool"}));
  EXPECT_EQ(parser.value("level"), "3");
}

TEST(CmdlineParserDefaults, TextOfEveryDefault) {
  cmdline_parser parser("tool", "");
  parser.add_option("", "on", "", true);
  parser.add_option("", "negative", "", -7);
  parser.add_option("", "whole", "", 2.0);
  parser.add_option("", "name", "", std::string_view("a b,c"));
  ASSERT_TRUE(parser.parse({"tool"}));
  EXPECT_EQ(parser.value("on"), "true");
  EXPECT_EQ(parser.value("negative"), "-7");
  EXPECT_EQ(parser.value("whole"), "2.");
  EXPECT_EQ(parser.value("name"), "a b,c");
  // Without a positional parameter, stray words are simply not collected.
  ASSERT_TRUE(parser.parse({"tool", "stray"}));
  EXPECT_EQ(parser.value("stray"), "");
}

TEST(CmdlineParserPositional, SecondDeclarationReplacesTheName) {
  cmdline_parser parser("tool", "");
  parser.add_option("inputs");
  parser.add_option("outputs");
  ASSERT_TRUE(parser.parse({"tool", "a", "b"}));
  EXPECT_EQ(parser.value("outputs"), "a,b");
  EXPECT_EQ(parser.count("inputs"), 0u);
}

TEST_F(CmdlineParser, HelpListsUsageAndOptions) {
  const auto help = parser.help();
  EXPECT_EQ(help.rfind("Converts things\nUsage:\n  tool [OPTION...] positional parameters\n\n", 0), 0u)
      << help;
  for (const char* line :
       {"  -v, --verbose ", "  -c, --count arg ", "  -r, --ratio arg ", "  -m, --mode arg "}) {
    EXPECT_NE(help.find(line), std::string::npos) << line << "\n" << help;
  }
  EXPECT_NE(help.find("How many (default: 0)"), std::string::npos) << help;
}

// A program without commands: bash, loading the script, offers option names,
// an option's choices, nothing for a number, and files for the positional
// parameter (bash splits "--mode=f" into three words, as written here).
// The commands of a program are covered by the norvane program's
// tests in all three shells.
TEST_F(CmdlineParser, BashCompletionOfAProgramWithoutCommands) {
  parser.set_choices("mode", {"fast", "safe", "slow"});
  const test::temp_dir dir;
  test::write_file(dir / "script", parser.completion_script(cmdline_parser::shell::bash));
  test::write_file(dir / "in.txt", "");
  const std::pair<std::string, std::string> cases[] = {
      {"tool --ver", "--verbose"}, {"tool -m s", "safe slow"}, {"tool --mode = f", "fast"},
      {"tool --count ", ""},       {"tool -v in", "in.txt"},   {"tool in.txt --r", "--ratio"},
  };
  for (const auto& [line, expected] : cases) {
    const std::string command = "cd '" + dir.path().string() +
                                "' && bash --norc -c 'source ./script; read -ra COMP_WORDS <<< \"" + line +
                                "\"; [[ \"" + line +
                                "\" == *\" \" ]] && COMP_WORDS+=(\"\"); "
                                "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tool; echo ${COMPREPLY[*]}'";
    FILE* pipe = ::popen(command.c_str(), "r");
    char text[256] = {};
    const bool read = std::fgets(text, sizeof text, pipe) != nullptr;
    ::pclose(pipe);
    ASSERT_TRUE(read) << line;
    EXPECT_EQ(std::string(text), expected + "\n") << line;
  }
}

}  // namespace
}  // namespace norvane
