// Input written to hurt: alias bombs, deep nesting, huge scalars, bytes
// that are not text. Each gives an error entry or a sane tree.
#include <norvane/yaml.hpp>

#include "yaml/access.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"
#include "yaml/tree_builder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace norvane::yaml;
using norvane::yaml::details::access;
using norvane::yaml::details::max_alias_nodes;
using norvane::yaml::details::max_nesting_depth;

namespace {

struct result {
  ryml_wrapper doc;
  std::vector<std::string> errors;
};

result read(std::string_view text) {
  result r;
  r.doc = read_yaml(text, r.errors);
  return r;
}

// Level 0 holds `width` scalars; every later level holds `width` aliases
// of the level before, so the last one stands for width^levels nodes.
std::string alias_bomb(int levels, int width) {
  std::string text = "l0: &l0 [";
  for (int i = 0; i < width; ++i) {
    text += i ? ", lol" : "lol";
  }
  text += "]\n";
  for (int level = 1; level < levels; ++level) {
    const std::string name = "l" + std::to_string(level);
    text += name + ": &" + name + " [";
    for (int i = 0; i < width; ++i) {
      text += (i ? ", *l" : "*l") + std::to_string(level - 1);
    }
    text += "]\n";
  }
  return text;
}

}  // namespace

TEST(YamlHostileInput, AliasBombIsRefusedButModestAliasesExpand) {
  const result bomb = read(alias_bomb(9, 10));
  EXPECT_FALSE(bomb.doc.is_valid());
  ASSERT_EQ(bomb.errors.size(), 1u);
  EXPECT_NE(bomb.errors[0].find("aliases expand to more than " + std::to_string(max_alias_nodes) + " nodes"),
            std::string::npos)
      << bomb.errors[0];

  const result modest = read(alias_bomb(4, 10));
  ASSERT_TRUE(modest.errors.empty()) << modest.errors.front();
  EXPECT_EQ(modest.doc["l3"].size(), 10u);
  EXPECT_EQ(modest.doc["l3"][9][9][9][9].as<std::string>(), "lol");
  EXPECT_EQ(modest.doc["l3"][0].size(), 10u);
}

TEST(YamlHostileInput, MergedMapsCountAgainstTheAliasLimit) {
  // 600 maps each merge two copies of a 1000-key map: the merged maps hold
  // 600k entries, but the 1.2M expanded nodes pass the limit.
  std::string text = "base: &b {";
  for (int i = 0; i < 1000; ++i) {
    text += (i ? ", k" : "k") + std::to_string(i) + ": v";
  }
  text += "}\n";
  const auto with_maps = [&text](int count) {
    std::string t = text;
    for (int i = 0; i < count; ++i) {
      t += "m" + std::to_string(i) + ": {<<: [*b, *b]}\n";
    }
    return t;
  };
  const result bomb = read(with_maps(600));
  ASSERT_EQ(bomb.errors.size(), 1u);
  EXPECT_NE(bomb.errors[0].find("aliases expand to more than"), std::string::npos) << bomb.errors[0];
  const result fine = read(with_maps(500));
  ASSERT_TRUE(fine.errors.empty()) << fine.errors.front();
  EXPECT_EQ(fine.doc["m499"].size(), 1000u);
}

TEST(YamlHostileInput, RecursiveAndUnknownAliasesAreErrors) {
  EXPECT_NE(read("a: &x [1, *x]\n").errors.at(0).find("alias 'x' refers to a node that contains it"),
            std::string::npos);
  EXPECT_NE(read("a: &x {k: *x}\n").errors.at(0).find("refers to a node that contains it"),
            std::string::npos);
  EXPECT_NE(read("a: *x\nb: &x 1\n").errors.at(0).find("unknown anchor 'x'"), std::string::npos)
      << "an alias before its anchor";
  EXPECT_NE(read("--- &x 1\n--- *x\n").errors.at(0).find("unknown anchor 'x'"), std::string::npos)
      << "anchors do not cross documents";
  // An alias used as a key resolves to the anchored scalar.
  const result key = read("base: &k name\n*k : value\n");
  ASSERT_TRUE(key.errors.empty()) << key.errors.front();
  EXPECT_EQ(key.doc["name"].as<std::string>(), "value");
}

TEST(YamlHostileInput, NestingIsBoundedAtAFixedDepth) {
  const std::string deep(100000, '[');
  const result flow = read(deep);
  EXPECT_FALSE(flow.doc.is_valid());
  ASSERT_EQ(flow.errors.size(), 1u);
  const std::size_t d = max_nesting_depth;
  EXPECT_EQ(flow.errors[0], "file:1:" + std::to_string(d + 1) + " (" + std::to_string(d) +
                                "B): nesting deeper than " + std::to_string(d) + " levels");

  const std::string balanced = std::string(100000, '{') + std::string(100000, '}');
  EXPECT_EQ(read(balanced).errors.size(), 1u);

  // Exactly at the limit is fine, one more is not.
  const std::string at_limit = std::string(d, '[') + std::string(d, ']');
  const result ok = read(at_limit);
  EXPECT_TRUE(ok.errors.empty());
  EXPECT_TRUE(ok.doc.is_array());
  EXPECT_EQ(read(std::string(d + 1, '[') + std::string(d + 1, ']')).errors.size(), 1u);

  // Block nesting counts the same way.
  std::string block;
  for (std::size_t i = 0; i <= d; ++i) {
    block += std::string(i, ' ') + "k:\n";
  }
  EXPECT_EQ(read(block).errors.size(), 1u);
}

TEST(YamlHostileInput, HundredMegabyteScalarReadsWhole) {
  const std::size_t size = 100u << 20;
  std::string text = "big: ";
  text.append(size, 'x');
  text += "\nafter: 1\n";
  const result r = read(text);
  ASSERT_TRUE(r.errors.empty()) << r.errors.front();
  EXPECT_EQ(access::impl(r.doc["big"])->shared_tree->val(access::impl(r.doc["big"])->node.id()).size(), size);
  EXPECT_EQ(r.doc["after"].as<int>(), 1);
  // The text was not duplicated: the arena holds the source once.
  EXPECT_LT(access::impl(r.doc)->shared_tree->arena_size(), text.size() + 4096);
}

// Which byte sequences are refused is the UTF-8 check's own test; here, how
// the reader reports them.
TEST(YamlHostileInput, BytesThatAreNotUtf8TextAreRefused) {
  EXPECT_EQ(read(std::string("a: b\0c\n", 7)).errors.at(0), "file:1:5 (4B): NUL byte in the document");
  EXPECT_EQ(read("ok: é\nb: x\xc0\x80\n").errors.at(0), "file:2:5 (11B): invalid UTF-8 sequence");
  const result ok = read("a: €𝄞ü\n");
  EXPECT_TRUE(ok.errors.empty());
  EXPECT_EQ(ok.doc["a"].as<std::string>(), "€𝄞ü");
}

TEST(YamlHostileInput, DuplicateKeysAndTabsGiveSaneResults) {
  const result dup = read("a: 1\na: 2\n");
  ASSERT_TRUE(dup.errors.empty());
  EXPECT_EQ(dup.doc.size(), 2u) << "both entries are kept";
  EXPECT_EQ(dup.doc["a"].as<int>(), 1) << "lookup finds the first";
  EXPECT_EQ(dup.doc[1].as<int>(), 2);

  EXPECT_EQ(read("a:\n\tb: 1\n").errors.at(0), "file:2:1 (3B): tab character may not be used as indentation");
  // libfyaml frees its pending key twice on these; the reader refuses them first.
  for (const char* text : {"- s: \n- ? eaon0\t:\t: h", "? a\t:\t- b\n", "? k :  \t|\n  x\n"}) {
    const result r = read(text);
    ASSERT_EQ(r.errors.size(), 1u) << text;
    EXPECT_NE(r.errors[0].find("cannot use tab for indentation of block entry"), std::string::npos)
        << r.errors[0];
  }
  EXPECT_TRUE(read("? a\n: b\nc: x\t| y\n").errors.empty())
      << "a tab inside a plain scalar is not indentation";
  const result tab_in_value = read("a: x\ty\n");
  ASSERT_TRUE(tab_in_value.errors.empty());
  EXPECT_EQ(tab_in_value.doc["a"].as<std::string>(), "x\ty");
}
