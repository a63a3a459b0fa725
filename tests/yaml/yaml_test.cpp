// Reading YAML and the node handle: error texts and positions, the
// callbacks in force afterwards, documents in the shapes users write, input
// written to hurt; classification, conversions, sharing and copying, seeds
// and the typed accessors.
#include <norvane/yaml.hpp>

#include "yaml/access.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"
#include "yaml/tree_builder.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cmath>
#include <iterator>
#include <stdexcept>

using namespace norvane::yaml;
using norvane::yaml::details::access;
using norvane::yaml::details::max_alias_nodes;
using norvane::yaml::details::max_nesting_depth;

namespace {

// The root of `text`, which must read without an error.
ryml_wrapper read_ok(std::string_view text) {
  std::vector<std::string> errors;
  ryml_wrapper h = read_yaml(text, errors);
  EXPECT_TRUE(errors.empty()) << errors.front();
  return h;
}

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

// The entries a range-for walk gives, as "key=value;" each.
std::string entries_of(const ryml_wrapper& node) {
  std::string walk;
  for (const auto& [key, value] : node)
    walk += std::string(key) + "=" + value.value_or<std::string>("") + ";";
  return walk;
}

// The handle on the value of `v: <scalar>`.
ryml_wrapper value_of(const std::string& scalar) { return read_ok("v: " + scalar + "\n")["v"]; }

// The classification as one letter: Unsigned, Integer, Float, Boolean, String.
char kind_of(const ryml_wrapper& h) {
  const bool i = h.is_number_integer(), u = h.is_number_unsigned(), f = h.is_number_float();
  const char kind = u ? 'U' : i ? 'I' : f ? 'F' : h.is_boolean() ? 'B' : h.is_string() ? 'S' : '?';
  // The predicates must agree with one another.
  EXPECT_EQ(h.is_number(), i || f) << kind;
  EXPECT_EQ(int{u} + int{i && !u} + int{f} + int{h.is_boolean()} + int{h.is_string()}, 1) << kind;
  return kind;
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
  EXPECT_TRUE(read_yaml("", errors).is_valid() && !read_yaml("a: [1", errors).is_valid());
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
    EXPECT_TRUE(get_callbacks().error == &ErrorHandler::s_error &&
                tree().get_callbacks().error == &ErrorHandler::s_error)
        << "trees take the callbacks in force";
  }
  EXPECT_TRUE(defaults_in_force());
  set_callbacks(ErrorHandler::callbacks());
  set_callbacks(callbacks{});
  EXPECT_TRUE(defaults_in_force()) << "a set without an error function installs the defaults";
}

// The default error function prints and aborts; the parser's own
// diagnostics are never printed.
TEST(YamlReadDeathTest, WhatReachesStandardError) {
  EXPECT_DEATH(default_callbacks().error("boom", 4, location{"src", 7, 2, 3}, nullptr),
               "src:2:3 \\(7B\\): boom");
  EXPECT_EXIT(
      {
        std::vector<std::string> errors;
        read_yaml("a: [1, 2\nb: \"open\n\tc: {", errors);
        std::exit(errors.size() == 1 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "^$");
  // Reading an explicit null as text ends the process, even with a throwing handler.
  const ryml_wrapper b = read_ok("b: ~\n")["b"];
  std::string s;
  EXPECT_DEATH(b.extract_primitive_impl(s), "could not deserialize value");
  ScopedErrorHandler throwing;
  EXPECT_DEATH(b.extract_primitive_impl(s), "could not deserialize value");
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
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(entries_of(read_ok(std::string(bases) + text)["m"]), expected) << text;
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

// Integers come before floats and floats before booleans; conversions go
// between numbers only, and text keeps its untrimmed form.
TEST(YamlHandle, ClassifiesAndConvertsScalars) {
  // Scalar, kind, as integer and as double (99 and 0.5 when not a number), as boolean.
  const std::tuple<const char*, char, long long, double, bool> rows[] = {
      {"42", 'U', 42, 42.0, false},
      {"+42", 'S', 99, 0.5, false},  // a leading plus makes a string, deliberately
      {"-42", 'I', -42, -42.0, false},
      {"0x1F", 'U', 31, 31.0, false},
      {"-0x10", 'I', -16, -16.0, false},
      {"0b101", 'U', 5, 5.0, false},
      {"0o17", 'U', 15, 15.0, false},
      {"1.5e3", 'F', 1500, 1500.0, false},
      {"-2.9", 'F', -2, -2.9, false},
      {"0x1.8p1", 'F', 3, 3.0, false},  // 0x with a fraction is a hexadecimal float
      {"1e300", 'F', LLONG_MAX, 1e300, false},
      {"nan", 'F', 99, 0.5, false},        // no integer to truncate to
      {"0x", 'S', 99, 0.5, false},         // a prefix needs a digit
      {"0x1.8p", 'S', 99, 0.5, false},     // and an exponent mark needs digits
      {"1.5abc", 'F', 1, 1.5, false},      // fast_float stops at the end of the number
      {"\" 42 \"", 'U', 42, 42.0, false},  // blanks around the text are trimmed first
      {"true", 'B', 99, 0.5, true},
      {"True", 'B', 99, 0.5, true},
      {"FALSE", 'B', 99, 0.5, false},
      {"tRue", 'S', 99, 0.5, false},
  };
  for (const auto& [scalar, kind, as_integer, as_double, as_bool] : rows) {
    SCOPED_TRACE(scalar);
    const ryml_wrapper h = value_of(scalar);
    ASSERT_TRUE(h.is_primitive() && !h.is_structured());
    EXPECT_EQ(kind_of(h), kind);
    long long i = 99;
    double d = 0.5;
    bool b = false;
    h.extract_primitive_impl(i), h.extract_primitive_impl(d), h.extract_primitive_impl(b);
    EXPECT_TRUE(i == as_integer && b == as_bool) << i << " " << b;
    EXPECT_TRUE(d == as_double || (std::isnan(d) && as_double == 0.5)) << d;
  }
  std::string s;
  value_of("\"  spaced  \"").extract_primitive_impl(s);
  EXPECT_EQ(s, "  spaced  ");
}

TEST(YamlHandle, NullEmptyAndAbsentValues) {
  ryml_wrapper doc = read_ok("a:\nb: ~\nc: null\nd: ''\ne: [1]\nport: 8080\nbig: 300\nneg: -1\nname: svc\n");
  // A value without text is both null and a string; this overlap is deliberate.
  EXPECT_TRUE(doc["a"].is_null() && doc["a"].is_string() && doc["a"].size() == 0);
  EXPECT_TRUE(!doc["b"].is_null() && doc["b"].size() == 1) << "~ keeps its text";
  EXPECT_FALSE(doc["a"].has_value() || doc["b"].has_value() || doc["c"].has_value());
  EXPECT_TRUE(doc["d"].has_value() && !doc["d"].is_null());
  // A null value, a map, a sequence and an untyped root all read as "".
  for (const ryml_wrapper& without_text : {doc["a"], doc, doc["e"], ryml_wrapper()}) {
    std::string s = "untouched";
    without_text.extract_primitive_impl(s);
    EXPECT_EQ(s, "");
  }
  // The typed accessors treat null, mismatch and overflow as absent.
  EXPECT_EQ(doc["b"].get<std::string>(), std::nullopt);
  EXPECT_EQ(doc["a"].value_or<std::string>("dflt"), "dflt");
  EXPECT_EQ(doc["d"].get<std::string>(), "");
  EXPECT_EQ(doc["port"].value_or<std::uint16_t>(1), 8080);
  EXPECT_EQ(doc["big"].value_or<std::uint8_t>(7), 7);
  EXPECT_FALSE(doc["neg"].get<unsigned>() || doc["name"].get<int>() || doc["port"].get<bool>());
  EXPECT_EQ(doc["missing"].value_or<int>(3), 3);
  EXPECT_TRUE(!doc["missing"].get<ryml_wrapper>() && doc["name"].get<ryml_wrapper>());
}

TEST(YamlHandle, HandlesShareTheTreeAndCopiesAreDeep) {
  ryml_wrapper doc = read_ok("a: 1\nb: [x, y]\n");
  const ryml_wrapper& cdoc = doc;
  {
    ryml_wrapper a = doc["a"];
    const ryml_wrapper found = cdoc["b"];
    EXPECT_EQ(doc.use_count(), 3);
    EXPECT_EQ(cdoc["zzz"].use_count(), 1) << "an empty handle has a counter of its own";
    // A cleared handle holds no share any more.
    a.clear();
    EXPECT_EQ(doc.use_count(), 2);
    a = found;
    EXPECT_EQ(doc.use_count(), 2) << "copy assignment takes a tree of its own";
    EXPECT_TRUE(a.is_array());
    ryml_wrapper copy(found);
    copy[0] = "changed";
    EXPECT_EQ(copy.use_count(), 1);
    EXPECT_EQ(doc["b"][0].as<std::string>(), "x") << "writing through a copy leaves the original alone";
  }
  EXPECT_EQ(doc.use_count(), 1);
  {
    // Copy assignment keeps the cached kind; the copy constructor classifies afresh.
    ryml_wrapper n = doc["a"];
    n.assign_primitive_impl(std::string_view("now text"));
    ryml_wrapper assigned;
    assigned = n;
    EXPECT_TRUE(n.is_number_integer() && doc["a"].is_string());
    EXPECT_TRUE(assigned.is_number_integer() && ryml_wrapper(n).is_string());
    // Move assignment exchanges the two records.
    ryml_wrapper left = doc["b"];
    ryml_wrapper moved(std::move(n));
    EXPECT_EQ(access::impl(n), nullptr);
    left = std::move(moved);
    EXPECT_TRUE(left.get<std::string>() == "now text" && moved.is_array());
    n = std::move(moved);  // a moved-from handle may be assigned to
    EXPECT_EQ(n[1].as<std::string>(), "y");
  }
  doc.clear();
  EXPECT_FALSE(doc.is_valid() || doc.size() != 0);
}

TEST(YamlHandle, IndexingMissingChildrenGivesSeeds) {
  ryml_wrapper doc = read_ok("list: [a, b]\nmap: {k: v}\nscalar: 3\n");
  ryml_wrapper list = doc["list"];
  ryml_wrapper fifth = list[5];
  EXPECT_FALSE(fifth.is_valid());
  fifth.assign_primitive_impl(std::string_view("c"));
  EXPECT_EQ(list[2].get<std::string>(), "c") << "an index seed appends at the end";
  EXPECT_TRUE(fifth.is_valid() && !std::as_const(list)[9].is_valid() && list.size() == 3);
  ryml_wrapper map = doc["map"];
  const std::string key = "new";
  map[std::string_view(key)] = 7;
  EXPECT_EQ(map["new"].as<int>(), 7);
  EXPECT_EQ(map["new"].key().data(), key.data()) << "the key refers to the caller's text";
  EXPECT_TRUE(map[0].key() == "k" && list[0].key().data() == nullptr) << "map entries have positions";
  // Only maps take keys, only containers take indices.
  EXPECT_FALSE(list["k"].is_valid() || doc["scalar"][0].is_valid() || doc["scalar"]["x"].is_valid());
  // A seed of a seed addresses nothing; writing through it is a no-op.
  ryml_wrapper deep = map["x"]["y"];
  deep = 1;
  EXPECT_FALSE(map["x"].is_valid());
  // The untyped root of a default handle is neither a map nor a sequence.
  ryml_wrapper root;
  EXPECT_EQ(root.size(), 1u);
  EXPECT_FALSE(root[0].is_valid() || root["a"].is_valid() || root.is_primitive() || root.is_structured());
  EXPECT_EQ(std::distance(root.begin(), root.end()), 1) << "it walks itself once, as size() says";
}

TEST(YamlHandle, WritesAreFormattedAndNotReclassifiedOnTheSameHandle) {
  ryml_wrapper doc = read_ok("s: text\nn: ~\n");
  ryml_wrapper s = doc["s"];
  s.assign_primitive_impl(true);
  EXPECT_TRUE(s.is_string() && doc["s"].is_boolean());
  s.parse_value();
  EXPECT_TRUE(s.is_boolean());
  const std::pair<std::function<void(ryml_wrapper)>, const char*> writes[] = {
      {[](ryml_wrapper h) { h.assign_primitive_impl(-12LL); }, "-12"},
      {[](ryml_wrapper h) { h.assign_primitive_impl(0.1); }, "0.1"},  // the shortest form
      {[](ryml_wrapper h) { h.assign_primitive_impl(false); }, "false"},
      {[](ryml_wrapper h) { h = std::string("other"); }, "other"},
  };
  for (const auto& [write, text] : writes) EXPECT_EQ((write(doc["s"]), doc["s"].get<std::string>()), text);
  doc["n"] = "set";  // a written value replaces an explicit null
  EXPECT_EQ(doc["n"].get<std::string>(), "set");
}

TEST(YamlHandle, RangeForWalksChildrenAndAgreesWithSize) {
  const ryml_wrapper doc = read_ok("env: {A: 1, B: two}\nports: [80, 443]\nname: web\nnone:\nempty: {}\n");
  const std::pair<const char*, std::string> rows[] = {
      {"env", "A=1;B=two;"}, {"ports", "=80;=443;"}, {"name", "name=web;"}, {"none", ""}, {"empty", ""},
  };
  for (const auto& [key, expected] : rows) {
    const ryml_wrapper node = doc[key];
    EXPECT_EQ(entries_of(node), expected) << key;
    EXPECT_EQ(static_cast<std::size_t>(std::distance(node.begin(), node.end())), node.size()) << key;
    for (const auto& [k, value] : node)
      EXPECT_EQ(value.use_count(), 3) << "a step shares the tree as [] does";
  }
  EXPECT_EQ(doc.use_count(), 1);
  ryml_wrapper cleared;
  cleared.clear();
  EXPECT_TRUE(cleared.begin() == cleared.end());
}
