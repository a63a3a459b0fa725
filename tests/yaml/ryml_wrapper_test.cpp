// The node handle: classification, sharing and copying, indexing and
// seeds, writing and reading values, and the typed accessors.
#include <norvane/yaml.hpp>

#include "yaml/access.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"
#include "yaml/yaml_test_util.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <iterator>
#include <string>
#include <vector>

using namespace norvane::yaml;
using norvane::test::read_ok;
using norvane::yaml::details::access;

namespace {

// The handle on the value of `v: <scalar>`.
ryml_wrapper value_of(const std::string& scalar) {
  ryml_wrapper doc = read_ok("v: " + scalar + "\n");
  return doc["v"];
}

enum class kind { integer, unsigned_integer, floating, boolean, string };

struct classification {
  const char* scalar;
  kind expected;
};

}  // namespace

TEST(YamlHandle, ClassifiesScalarsIntegerThenFloatThenBoolean) {
  const std::vector<classification> table = {
      {"42", kind::unsigned_integer},
      {"+42", kind::string},  // a leading plus makes a string, deliberately
      {"+1.5", kind::string},
      {"-42", kind::integer},
      {"0x1F", kind::unsigned_integer},
      {"0b101", kind::unsigned_integer},
      {"0o17", kind::unsigned_integer},
      {"-0x10", kind::integer},
      {"0", kind::unsigned_integer},  // integers come before booleans
      {"1", kind::unsigned_integer},
      {"1.5e3", kind::floating},
      {".5", kind::floating},
      {"-2.9", kind::floating},
      {"0x1.8p1", kind::floating},  // 0x with a fraction is a hexadecimal float
      {"0x", kind::string},         // a prefix needs a digit
      {"0x1.8p", kind::string},     // and an exponent mark needs digits
      {"0x1.8q", kind::string},     // a hexadecimal float takes the whole text
      {"0b102", kind::floating},    // not binary, but fast_float reads its leading 0
      {"true", kind::boolean},
      {"True", kind::boolean},
      {"FALSE", kind::boolean},
      {"tRue", kind::string},
      {"yes", kind::string},
      {"hello", kind::string},
      {"\" 42 \"", kind::unsigned_integer},  // blanks around the text are trimmed first
      // fast_float reads the number at the start of the text and does not
      // require the rest to be part of it.
      {"1.5abc", kind::floating},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.scalar);
    const ryml_wrapper h = value_of(row.scalar);
    ASSERT_TRUE(h.is_primitive());
    EXPECT_EQ(h.is_number_integer(), row.expected == kind::integer || row.expected == kind::unsigned_integer);
    EXPECT_EQ(h.is_number_unsigned(), row.expected == kind::unsigned_integer);
    EXPECT_EQ(h.is_number_float(), row.expected == kind::floating);
    EXPECT_EQ(h.is_number(), row.expected != kind::boolean && row.expected != kind::string);
    EXPECT_EQ(h.is_boolean(), row.expected == kind::boolean);
    EXPECT_EQ(h.is_string(), row.expected == kind::string);
    EXPECT_FALSE(h.is_structured());
  }

  long long i = 0;
  value_of("0x1F").extract_primitive_impl(i);
  EXPECT_EQ(i, 31);
  value_of("-0x10").extract_primitive_impl(i);
  EXPECT_EQ(i, -16);
  value_of("0b101").extract_primitive_impl(i);
  EXPECT_EQ(i, 5);
  double d = 0;
  value_of("0x1.8p1").extract_primitive_impl(d);
  EXPECT_DOUBLE_EQ(d, 3.0);
  value_of("-0x1p-2").extract_primitive_impl(d);
  EXPECT_DOUBLE_EQ(d, -0.25);
  value_of("1.5e3").extract_primitive_impl(d);
  EXPECT_DOUBLE_EQ(d, 1500.0);
}

TEST(YamlHandle, NullAndEmptyValues) {
  ryml_wrapper doc = read_ok("a:\nb: ~\nc: null\nd: ''\ne: [1]\n");
  const ryml_wrapper a = doc["a"];
  // A value without text is both null and a string; this overlap is deliberate.
  EXPECT_TRUE(a.is_null());
  EXPECT_TRUE(a.is_string());
  EXPECT_EQ(a.size(), 0u);
  EXPECT_FALSE(a.has_value());

  const ryml_wrapper b = doc["b"];
  EXPECT_FALSE(b.is_null()) << "~ keeps its text";
  EXPECT_TRUE(b.is_string());
  EXPECT_EQ(b.size(), 1u);
  EXPECT_FALSE(b.has_value());
  EXPECT_FALSE(doc["c"].has_value());

  const ryml_wrapper d = doc["d"];
  EXPECT_FALSE(d.is_null());
  EXPECT_TRUE(d.has_value());
  EXPECT_EQ(d.get<std::string>(), std::string());

  // A null value, a map, a sequence and an untyped root all read as "".
  for (const ryml_wrapper& without_text : {a, doc, doc["e"], ryml_wrapper()}) {
    std::string s = "untouched";
    without_text.extract_primitive_impl(s);
    EXPECT_EQ(s, "");
  }

  EXPECT_EQ(doc.size(), 5u);
  EXPECT_EQ(doc["e"].size(), 1u);
  EXPECT_TRUE(doc["e"][0].is_number_integer());
}

TEST(YamlHandleDeathTest, ReadingAnExplicitNullAsTextEndsTheProcess) {
  ryml_wrapper doc = read_ok("b: ~\n");
  const ryml_wrapper b = doc["b"];
  std::string s;
  EXPECT_DEATH(b.extract_primitive_impl(s), "could not deserialize value");
  {
    ScopedErrorHandler throwing;
    EXPECT_DEATH(b.extract_primitive_impl(s), "could not deserialize value");
  }
  // The typed accessors treat it as absent instead.
  EXPECT_EQ(b.get<std::string>(), std::nullopt);
  EXPECT_EQ(b.value_or<std::string>("fallback"), "fallback");
}

TEST(YamlHandle, ExplicitNullReportsThroughTheTreesCallbacks) {
  struct recorder {
    std::vector<std::string> messages;
  } seen;
  set_callbacks(callbacks{&seen, [](const char* msg, std::size_t len, location, void* user) {
                            static_cast<recorder*>(user)->messages.emplace_back(msg, len);
                          }});
  ryml_wrapper h;  // its tree keeps the recording callbacks
  set_callbacks(default_callbacks());
  tree& t = *access::impl(h)->shared_tree;
  t.set_val(t.root_id(), t.copy_to_arena("~"));
  t.add_flags(t.root_id(), VAL | VALNIL);
  h.parse_value();
  std::string s = "untouched";
  h.extract_primitive_impl(s);
  EXPECT_EQ(s, "untouched");
  ASSERT_EQ(seen.messages.size(), 1u);
  EXPECT_EQ(seen.messages[0], "could not deserialize value");
}

TEST(YamlHandle, DefaultHandleAddressesTheRootOfItsOwnEmptyTree) {
  ryml_wrapper h;
  EXPECT_TRUE(h.is_valid());
  EXPECT_EQ(h.use_count(), 1);
  EXPECT_EQ(h.size(), 1u);
  EXPECT_FALSE(h.is_primitive());
  EXPECT_FALSE(h.is_structured());
  EXPECT_EQ(access::impl(h)->value.kind, details::scalar_kind::none);
  EXPECT_EQ(h.key().data(), nullptr);
  EXPECT_FALSE(h[0].is_valid()) << "the root is neither a map nor a sequence";
  EXPECT_FALSE(h["a"].is_valid());

  h.clear();
  EXPECT_FALSE(h.is_valid());
  EXPECT_EQ(h.size(), 0u);
  EXPECT_EQ(h.use_count(), 1) << "the last owner stores 1 back into the counter";
}

TEST(YamlHandle, HandlesFromIndexingShareTheTreeAndItsCounter) {
  ryml_wrapper doc = read_ok("a: 1\nb: [x, y]\n");
  EXPECT_EQ(doc.use_count(), 1);
  {
    ryml_wrapper a = doc["a"];
    EXPECT_EQ(doc.use_count(), 2);
    EXPECT_EQ(a.use_count(), 2);
    const ryml_wrapper& cdoc = doc;
    const ryml_wrapper missing = cdoc["zzz"];
    EXPECT_FALSE(missing.is_valid());
    EXPECT_EQ(missing.use_count(), 1) << "an empty handle has a counter of its own";
    EXPECT_EQ(doc.use_count(), 2);
    const ryml_wrapper found = cdoc["b"];
    EXPECT_EQ(doc.use_count(), 3);
  }
  EXPECT_EQ(doc.use_count(), 1);

  // A cleared handle holds no share any more: dropping it later must not
  // take one from the handles still on the tree.
  {
    ryml_wrapper a = doc["a"];
    ryml_wrapper b = doc["b"];
    a.clear();
    a.clear();
    EXPECT_EQ(doc.use_count(), 2);
  }
  EXPECT_EQ(doc.use_count(), 1);
  {
    ryml_wrapper a = doc["a"];
    a.clear();
    const ryml_wrapper b = doc["b"];
    a = b;
    EXPECT_EQ(doc.use_count(), 2) << "copy assignment takes a tree of its own";
    EXPECT_EQ(a.use_count(), 1);
    EXPECT_TRUE(a.is_array());
  }
  EXPECT_EQ(doc.use_count(), 1);

  // The tree lives while any handle on it does.
  ryml_wrapper y = doc["b"][1];
  doc.clear();
  EXPECT_FALSE(doc.is_valid());
  EXPECT_EQ(y.use_count(), 1);
  EXPECT_TRUE(y.is_valid());
  EXPECT_EQ(y.get<std::string>(), "y");
}

TEST(YamlHandle, CopiesAreDeepAndMovesSwap) {
  ryml_wrapper doc = read_ok("n: 5\ns: text\n");
  ryml_wrapper n = doc["n"];
  ASSERT_EQ(doc.use_count(), 2);

  ryml_wrapper copy(n);
  EXPECT_EQ(copy.use_count(), 1) << "a copy owns a new tree";
  EXPECT_EQ(doc.use_count(), 2);
  EXPECT_TRUE(copy.is_number_integer());
  copy = "changed";
  EXPECT_EQ(doc["n"].as<long long>(), 5) << "writing through a copy leaves the original alone";

  // Copy assignment copies the cached kind without classifying again, so a
  // stale kind travels with it; the copy constructor classifies afresh.
  n.assign_primitive_impl(std::string_view("now text"));
  EXPECT_TRUE(n.is_number_integer());
  ryml_wrapper assigned;
  assigned = n;
  EXPECT_TRUE(assigned.is_number_integer());
  EXPECT_EQ(assigned.use_count(), 1);
  const ryml_wrapper constructed(n);
  EXPECT_TRUE(constructed.is_string());
  EXPECT_EQ(constructed.get<std::string>(), "now text");

  ryml_wrapper other = doc["s"];
  ryml_wrapper moved(std::move(other));
  EXPECT_EQ(moved.get<std::string>(), "text");
  EXPECT_EQ(access::impl(other), nullptr);
  ryml_wrapper left = doc["n"];
  left = std::move(moved);
  EXPECT_EQ(left.get<std::string>(), "text");
  ASSERT_NE(access::impl(moved), nullptr) << "move assignment exchanges the two records";
  EXPECT_EQ(moved.get<std::string>(), "now text");
  other = std::move(moved);  // a moved-from handle may be assigned to
  EXPECT_EQ(other.get<std::string>(), "now text");

  ryml_wrapper self = doc["n"];
  const long before = doc.use_count();
  self = *&self;
  EXPECT_EQ(doc.use_count(), before);
  EXPECT_TRUE(self.is_valid());
}

TEST(YamlHandle, IndexingMissingChildrenGivesSeeds) {
  ryml_wrapper doc = read_ok("list: [a, b]\nmap: {k: v}\nscalar: 3\n");
  ryml_wrapper list = doc["list"];
  ryml_wrapper fifth = list[5];
  EXPECT_FALSE(fifth.is_valid());
  EXPECT_EQ(fifth.size(), 0u);
  EXPECT_EQ(list.size(), 2u);
  fifth.assign_primitive_impl(std::string_view("c"));
  EXPECT_EQ(list.size(), 3u);
  EXPECT_EQ(list[2].get<std::string>(), "c") << "an index seed appends at the end";
  EXPECT_TRUE(fifth.is_valid());

  const ryml_wrapper& clist = list;
  EXPECT_FALSE(clist[9].is_valid());
  EXPECT_EQ(clist[9].use_count(), 1);
  EXPECT_EQ(list.size(), 3u);

  ryml_wrapper map = doc["map"];
  const std::string key = "new";
  ryml_wrapper seed = map[std::string_view(key)];
  EXPECT_FALSE(seed.is_valid());
  seed.assign_primitive_impl(7LL);
  ryml_wrapper written = map["new"];
  EXPECT_EQ(written.as<int>(), 7);
  EXPECT_EQ(written.key(), "new");
  EXPECT_EQ(written.key().data(), key.data()) << "the key refers to the caller's text";
  EXPECT_EQ(map["k"].key(), "k");

  // Only maps take keys, only containers take indices.
  EXPECT_FALSE(list["k"].is_valid());
  EXPECT_FALSE(doc["scalar"][0].is_valid());
  EXPECT_FALSE(doc["scalar"]["x"].is_valid());
  EXPECT_TRUE(map[0].is_valid()) << "map entries are addressable by position";
  EXPECT_EQ(map[0].key(), "k");
  EXPECT_EQ(list[0].key().data(), nullptr);
  // A seed of a seed addresses nothing; writing through it is a no-op.
  ryml_wrapper deep = map["x"]["y"];
  deep = 1;
  EXPECT_FALSE(map["x"].is_valid());
}

TEST(YamlHandle, WritingDoesNotReclassifyTheSameHandle) {
  ryml_wrapper doc = read_ok("s: text\n");
  ryml_wrapper s = doc["s"];
  s.assign_primitive_impl(true);
  EXPECT_TRUE(s.is_string());
  EXPECT_FALSE(s.is_boolean());
  EXPECT_TRUE(doc["s"].is_boolean());
  EXPECT_EQ(doc["s"].get<std::string>(), "true");
  s.parse_value();
  EXPECT_TRUE(s.is_boolean());

  doc["s"].assign_primitive_impl(-12LL);
  EXPECT_EQ(doc["s"].get<std::string>(), "-12");
  doc["s"].assign_primitive_impl(0.1);
  EXPECT_EQ(doc["s"].get<std::string>(), "0.1") << "doubles are written in their shortest form";
  doc["s"].assign_primitive_impl(false);
  EXPECT_EQ(doc["s"].get<std::string>(), "false");

  // A written value replaces an explicit null.
  ryml_wrapper nulls = read_ok("n: ~\n");
  nulls["n"] = "set";
  EXPECT_EQ(nulls["n"].get<std::string>(), "set");

  ryml_wrapper empty = doc["missing"]["deeper"];
  empty.assign_primitive_impl(1LL);
  EXPECT_FALSE(empty.is_valid());
}

TEST(YamlHandle, ExtractionConvertsBetweenNumbersOnly) {
  long long i = 99;
  value_of("2.9").extract_primitive_impl(i);
  EXPECT_EQ(i, 2);
  value_of("-2.9").extract_primitive_impl(i);
  EXPECT_EQ(i, -2);
  value_of("1e300").extract_primitive_impl(i);
  EXPECT_EQ(i, LLONG_MAX);
  value_of("-1e300").extract_primitive_impl(i);
  EXPECT_EQ(i, LLONG_MIN);
  i = 99;
  value_of("true").extract_primitive_impl(i);
  EXPECT_EQ(i, 99) << "booleans are not numbers";
  value_of("nan").extract_primitive_impl(i);
  EXPECT_EQ(i, 99) << "NaN has no integer to truncate to";

  double d = 0.5;
  value_of("7").extract_primitive_impl(d);
  EXPECT_DOUBLE_EQ(d, 7.0);
  d = 0.5;
  value_of("seven").extract_primitive_impl(d);
  EXPECT_DOUBLE_EQ(d, 0.5);

  bool b = false;
  value_of("1").extract_primitive_impl(b);
  EXPECT_FALSE(b) << "1 is an integer, not a boolean";
  value_of("True").extract_primitive_impl(b);
  EXPECT_TRUE(b);

  std::string s;
  value_of("\"  spaced  \"").extract_primitive_impl(s);
  EXPECT_EQ(s, "  spaced  ") << "strings keep their untrimmed text";

  ryml_wrapper target;
  value_of("12").extract_primitive_impl(target);
  EXPECT_EQ(target.as<int>(), 12);
  EXPECT_EQ(target.use_count(), 1);
}

TEST(YamlHandle, TypedAccessorsTreatNullAndMismatchAsAbsent) {
  ryml_wrapper doc =
      read_ok("port: 8080\nratio: 0.25\nname: svc\nflag: true\nbig: 300\nneg: -1\nnothing: ~\nempty:\n");
  EXPECT_EQ(doc["port"].as<int>(), 8080);
  EXPECT_EQ(doc["port"].value_or<std::uint16_t>(1), 8080);
  EXPECT_EQ(doc["big"].value_or<std::uint8_t>(7), 7) << "300 does not fit a byte";
  EXPECT_EQ(doc["neg"].get<unsigned>(), std::nullopt);
  EXPECT_EQ(doc["neg"].get<int>(), -1);
  EXPECT_DOUBLE_EQ(doc["ratio"].as<double>(), 0.25);
  EXPECT_FLOAT_EQ(doc["port"].as<float>(), 8080.0f);
  EXPECT_EQ(doc["ratio"].as<int>(), 0);
  EXPECT_EQ(doc["name"].as<std::string>(), "svc");
  EXPECT_EQ(doc["name"].get<int>(), std::nullopt);
  EXPECT_EQ(doc["flag"].as<bool>(), true);
  EXPECT_EQ(doc["port"].get<bool>(), std::nullopt);
  EXPECT_EQ(doc["nothing"].value_or<std::string>("dflt"), "dflt");
  EXPECT_EQ(doc["empty"].value_or<std::string>("dflt"), "dflt");
  EXPECT_EQ(doc["missing"].value_or<int>(3), 3);
  EXPECT_EQ(doc["missing"]["deeper"].as<std::string>(), "");
  EXPECT_TRUE(doc["name"].get<ryml_wrapper>().has_value());
  EXPECT_FALSE(doc["missing"].get<ryml_wrapper>().has_value());

  doc["port"] = 9090;
  doc["name"] = std::string("other");
  doc["flag"] = false;
  doc["ratio"] = 1.5;
  doc["added"] = "new";
  EXPECT_EQ(doc["port"].as<int>(), 9090);
  EXPECT_EQ(doc["name"].as<std::string>(), "other");
  EXPECT_EQ(doc["flag"].get<bool>(), false);
  EXPECT_DOUBLE_EQ(doc["ratio"].as<double>(), 1.5);
  EXPECT_EQ(doc["added"].as<std::string>(), "new");
}

TEST(YamlHandle, RangeForWalksChildrenAndAgreesWithSize) {
  const ryml_wrapper doc = read_ok("env: {A: 1, B: two}\nports: [80, 443]\nname: web\nnone:\nempty: {}\n");
  const long before = doc.use_count();
  struct row {
    const char* key;
    std::string walk;  // "key=value;" per step
  };
  const row rows[] = {
      {"env", "A=1;B=two;"}, {"ports", "=80;=443;"}, {"name", "name=web;"}, {"none", ""}, {"empty", ""},
  };
  for (const row& r : rows) {
    const ryml_wrapper node = doc[r.key];
    std::string walk;
    std::size_t steps = 0;
    for (const auto& [key, value] : node) {
      walk += std::string(key) + "=" + value.value_or<std::string>("") + ";";
      EXPECT_EQ(value.use_count(), before + 2) << "a step shares the tree as operator[] does";
      ++steps;
    }
    EXPECT_EQ(walk, r.walk) << r.key;
    EXPECT_EQ(steps, node.size()) << r.key;
  }
  EXPECT_EQ(doc.use_count(), before);

  std::size_t keys = 0;
  for (const auto& entry : doc) {
    EXPECT_EQ(entry.key(), doc[keys].key());
    ++keys;
  }
  EXPECT_EQ(keys, 5u);
  // A sequence's items are handles in their own right.
  int sum = 0;
  for (const auto& port : doc["ports"]) {
    sum += port.as<int>();
  }
  EXPECT_EQ(sum, 523);
  const ryml_wrapper root;
  EXPECT_EQ(std::distance(root.begin(), root.end()), 1)
      << "an untyped root walks itself once, as size() says";
  ryml_wrapper cleared;
  cleared.clear();
  EXPECT_TRUE(cleared.begin() == cleared.end());
}
