// read_yaml: error texts and positions, the callbacks in force afterwards,
// documents in the shapes users write, and input written to hurt.
#include <norvane/yaml.hpp>

#include "yaml/access.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"
#include "yaml/tree_builder.hpp"
#include "yaml/yaml_test_util.hpp"

#include <cctype>
#include <stdexcept>

using namespace norvane::yaml;
using norvane::test::read_ok;
using norvane::yaml::details::access;
using norvane::yaml::details::max_alias_nodes;
using norvane::yaml::details::max_nesting_depth;

namespace {

// The one error reading `text` gives, checked to leave nothing behind.
std::string error_of(std::string_view text) {
  std::vector<std::string> errors;
  const ryml_wrapper h = read_yaml(text, errors);
  EXPECT_FALSE(h.is_valid()) << text;
  return errors.size() == 1 ? errors[0] : "<" + std::to_string(errors.size()) + " errors>";
}

bool defaults_in_force() { return get_callbacks().error == default_callbacks().error; }

// Level 0 holds ten scalars, every later level ten aliases of the one before.
std::string alias_bomb(int levels) {
  std::string text = "l0: &l0 [lol, lol, lol, lol, lol, lol, lol, lol, lol, lol]\n";
  for (int level = 1; level < levels; ++level) {
    const auto l = std::to_string(level), before = "*l" + std::to_string(level - 1);
    text += "l" + l + ": &l" + l + " [" + before;
    for (int i = 1; i < 10; ++i) text += ", " + before;
    text += "]\n";
  }
  return text;
}

// A 1000-key map, and `count` maps that each merge it twice.
std::string merge_bomb(int count) {
  std::string text = "base: &b {k0: v";
  for (int i = 1; i < 1000; ++i) text += ", k" + std::to_string(i) + ": v";
  text += "}\n";
  for (int i = 0; i < count; ++i) text += "m" + std::to_string(i) + ": {<<: [*b, *b]}\n";
  return text;
}

}  // namespace

// Columns count characters, offsets count bytes; the reader's own faults
// use the parser's form.
TEST(YamlRead, ErrorsCarryTheParsersMessageAndPosition) {
  const std::size_t d = max_nesting_depth;
  const auto depth = std::to_string(d);
  std::string block;
  for (std::size_t i = 0; i <= d; ++i) block += std::string(i, ' ') + "k:\n";
  const std::pair<std::string, std::string> rows[] = {
      {"a: [1, 2", "file:1:4 (3B): flow sequence without a closing bracket"},
      {"a: 1\nb: [1, 2\nc: 3\n", "file:2:4 (8B): flow sequence without a closing bracket"},
      {"x: {a: [1], b: {c: 2}", "file:1:4 (3B): flow mapping without a closing brace"},
      {"é: \"ü\n", "file:1:5 (5B): double-quoted scalar without closing quote"},
      {"x: 1\ny: *nope\n", "file:2:4 (8B): unknown anchor 'nope'"},
      {"--- &x 1\n--- *x\n", "file:2:5 (13B): unknown anchor 'x'"},  // anchors do not cross documents
      {"a: &x [1, *x]\n", "file:1:11 (10B): alias 'x' refers to a node that contains it"},
      {"? [a, b]\n: v\n", "file:1:3 (2B): maps and sequences as keys are not supported"},
      {std::string("a: b\0c\n", 7), "file:1:5 (4B): NUL byte in the document"},
      {"ok: é\nb: x\xc0\x80\n", "file:2:5 (11B): invalid UTF-8 sequence"},
      {std::string(d + 1, '[') + std::string(d + 1, ']'),
       "file:1:" + std::to_string(d + 1) + " (" + depth + "B): nesting deeper than " + depth + " levels"},
      {block, "file:" + std::to_string(d + 1) + ":" + std::to_string(d + 1) + " (" +
                  std::to_string(d * (d - 1) / 2 + 4 * d) + "B): nesting deeper than " + depth + " levels"},
  };
  for (const auto& [text, expected] : rows) EXPECT_EQ(error_of(text), expected) << text.substr(0, 40);
  // libfyaml frees its pending key twice on these; the reader refuses them first.
  for (const char* text : {"- s: \n- ? eaon0\t:\t: h", "? a\t:\t- b\n", "? k :  \t|\n  x\n"}) {
    EXPECT_NE(error_of(text).find("cannot use tab for indentation of block entry"), std::string::npos)
        << text;
  }
  EXPECT_NE(error_of(alias_bomb(9)).find("aliases expand to more than " + std::to_string(max_alias_nodes)),
            std::string::npos);
  // 600 maps merging a 1000-key map twice pass the limit; 500 do not.
  EXPECT_NE(error_of(merge_bomb(600)).find("aliases expand to more than"), std::string::npos);
  EXPECT_EQ(read_ok(merge_bomb(500))["m499"].size(), 1000u);
  EXPECT_EQ(read_ok(alias_bomb(4))["l3"][9][9][9][9].as<std::string>(), "lol");
  EXPECT_TRUE(read_ok(std::string(d, '[') + std::string(d, ']')).is_array()) << "exactly at the limit";
}

TEST(YamlRead, ErrorsAppendAndTheDefaultCallbacksComeBack) {
  std::vector<std::string> errors = {"kept"};
  EXPECT_TRUE(read_yaml("", errors).is_valid());
  EXPECT_FALSE(read_yaml("a: [1", errors).is_valid());
  set_callbacks(ErrorHandler::callbacks());
  EXPECT_FALSE(read_yaml("b: {x", errors).is_valid());
  EXPECT_TRUE(defaults_in_force()) << "whatever was installed before";
  ASSERT_EQ(errors.size(), 3u);
  EXPECT_TRUE(errors[0] == "kept" && errors[2].find("flow mapping") != std::string::npos);
  try {
    ErrorHandler::on_error("boom here", 4, location{"src", 10, 3, 4});
    ADD_FAILURE() << "on_error returned";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "src:3:4 (10B): boom");
  }
  {
    ScopedErrorHandler scope;
    EXPECT_EQ(get_callbacks().error, &ErrorHandler::s_error);
    EXPECT_EQ(tree().get_callbacks().error, &ErrorHandler::s_error) << "trees take the callbacks in force";
  }
  EXPECT_TRUE(defaults_in_force());
  set_callbacks(ErrorHandler::callbacks());
  set_callbacks(callbacks{});
  EXPECT_TRUE(defaults_in_force()) << "a set without an error function installs the defaults";
}

TEST(YamlReadDeathTest, DefaultErrorFunctionPrintsAndAborts) {
  EXPECT_DEATH(default_callbacks().error("boom", 4, location{"src", 7, 2, 3}, nullptr),
               "src:2:3 \\(7B\\): boom");
}

// Nothing on standard error: the parser's own diagnostics are not printed.
TEST(YamlReadDeathTest, ParserDiagnosticsAreNotPrinted) {
  EXPECT_EXIT(
      {
        std::vector<std::string> errors;
        read_yaml("a: [1, 2\nb: \"open\n\tc: {", errors);
        std::exit(errors.size() == 1 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "^$");
}

// Documents in the shapes users write, each value read at its path (numbers
// index sequences), as text ("" when absent).
TEST(YamlRead, DocumentsUsersWrite) {
  const auto text =
      std::make_unique<std::string>(R"(on: {push: {branches: [main, 'release/**']}, pull_request: }
jobs:
  build:
    environment: &env {TZ: Europe/Paris}
    image: &img registry.example.com/web:1.4.2
    mirror: *img
    steps:
      - keep: |+
          kept

        timeout-minutes: 30
dup: {a: 1, a: 2}
base: &k key
*k : aliased key
bare: x	y
)");
  const ryml_wrapper doc = read_ok(*text);
  text->assign(text->size(), 'X');  // the text is copied
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"on", "push", "branches", "1"}, "release/**"},
      {{"on", "pull_request"}, ""},
      {{"jobs", "build", "environment", "TZ"}, "Europe/Paris"},
      {{"jobs", "build", "mirror"}, "registry.example.com/web:1.4.2"},
      {{"jobs", "build", "steps", "0", "keep"}, "kept\n\n"},
      {{"jobs", "build", "steps", "0", "1"}, "30"},
      {{"dup", "a"}, "1"},  // both entries are kept, lookup finds the first
      {{"dup", "1"}, "2"},
      {{"key"}, "aliased key"},
      {{"bare"}, "x\ty"},  // a tab inside a plain scalar is not indentation
  };
  for (const auto& [path, expected] : rows) {
    ryml_wrapper node = doc;
    for (const std::string& step : path) {
      node = std::isdigit(static_cast<unsigned char>(step[0])) ? std::as_const(node)[std::stoul(step)]
                                                               : std::as_const(node)[step];
    }
    EXPECT_EQ(node.value_or<std::string>(""), expected) << path.back();
  }
  // Block scalars without content, wherever a document can hold them.
  // Only a kept blank line survives.
  const std::string blocks[] = {"a: |\n", "a: |+", "a: |\nb: 1\n", "a: !!str\n", "a: |+\n\nb: 1\n"};
  for (const auto& yaml : blocks)
    EXPECT_EQ(read_ok(yaml)["a"].get<std::string>(), yaml[5] == '\n' ? "\n" : "");
  EXPECT_TRUE(read_ok("- |+\n- >-")[1].get<std::string>() == "" &&
              read_ok("!!str : bar\n")[""].get<std::string>() == "bar");
  const ryml_wrapper many = read_ok("--- {a: 1}\n--- plain\n---\n- x\n");
  EXPECT_TRUE(many.is_array() && many[1].as<std::string>() == "plain")
      << "a stream is a sequence of documents";
  EXPECT_EQ(access::impl(many)->shared_tree->type(access::impl(many)->shared_tree->root_id()), STREAM);
  EXPECT_TRUE(read_ok("--- {a: 1}\n").is_object()) << "one document is the root itself";
}

TEST(YamlRead, MergeKeysMergeNamedMapsAndLocalKeysWin) {
  const char* bases = "a: &a {x: 1, y: 2}\nb: &b {y: 3, z: 4}\n";
  const std::pair<const char*, std::string> rows[] = {
      {"m:\n  <<: *a\n  y: local\n", "x=1;y=local;"},
      {"m:\n  y: local\n  <<: *a\n", "y=local;x=1;"},
      {"m:\n  <<: [*a, *b]\n", "x=1;y=2;z=4;"},
      {"m:\n  <<: [*b, *a]\n  z: 0\n", "y=3;x=1;z=0;"},
      {"m: {<<: {p: q}, r: s}\n", "p=q;r=s;"},
      {"n: &n {<<: *a, w: 5}\nm: {<<: *n, x: 9}\n", "y=2;w=5;x=9;"},
      {"m: {\"<<\": *a}\n", "<<=;"},
      {"m: {<<: plain}\n", "<<=plain;"},
      {"n: {<<: &inline {p: {q: r}}}\nm: *inline\n", "p=;"},
  };
  for (const auto& [text, expected] : rows) {
    std::string entries;
    for (const auto& [key, value] : read_ok(std::string(bases) + text)["m"]) {
      entries += std::string(key) + "=" + value.value_or<std::string>("") + ";";
    }
    EXPECT_EQ(entries, expected) << text;
  }
  std::vector<std::string> errors;
  const ryml_wrapper off = read_yaml(std::string(bases) + "m: {<<: *a}\n", errors, read_options{false});
  EXPECT_TRUE(off["m"]["<<"].is_object()) << "merging can be turned off";
}

TEST(YamlRead, AHundredMegabyteScalarIsHeldOnce) {
  std::string text = "big: " + std::string(100u << 20, 'x') + "\nafter: 1\n";
  const ryml_wrapper doc = read_ok(text);
  EXPECT_EQ(access::impl(doc["big"])->shared_tree->val(access::impl(doc["big"])->node.id()).size(),
            100u << 20);
  EXPECT_EQ(doc["after"].as<int>(), 1);
  EXPECT_LT(access::impl(doc)->shared_tree->arena_size(), text.size() + 4096);
}
