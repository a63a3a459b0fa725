// The node handle and the tree under it: classification, conversions,
// sharing and copying, seeds, and the typed accessors.
#include <norvane/yaml.hpp>

#include "yaml/access.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"
#include "yaml/yaml_test_util.hpp"

#include <climits>
#include <cmath>
#include <iterator>

using namespace norvane::yaml;
using norvane::test::read_ok;
using norvane::yaml::details::access;

namespace {

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

// Integers come before floats and floats before booleans; conversions go
// between numbers only, and text keeps its untrimmed form.
TEST(YamlHandle, ClassifiesAndConvertsScalars) {
  struct row {  // as_integer 99 and as_double 0.5 when the value is not a number
    const char* scalar;
    char kind;
    long long as_integer;
    double as_double;
    bool as_bool;
  };
  const row rows[] = {
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
  for (const auto& r : rows) {
    SCOPED_TRACE(r.scalar);
    const ryml_wrapper h = value_of(r.scalar);
    ASSERT_TRUE(h.is_primitive() && !h.is_structured());
    EXPECT_EQ(kind_of(h), r.kind);
    long long i = 99;
    double d = 0.5;
    bool b = false;
    h.extract_primitive_impl(i), h.extract_primitive_impl(d), h.extract_primitive_impl(b);
    EXPECT_TRUE(i == r.as_integer && b == r.as_bool) << i << " " << b;
    EXPECT_TRUE(d == r.as_double || (std::isnan(d) && r.as_double == 0.5)) << d;
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

TEST(YamlHandleDeathTest, ReadingAnExplicitNullAsTextEndsTheProcess) {
  const ryml_wrapper b = read_ok("b: ~\n")["b"];
  std::string s;
  EXPECT_DEATH(b.extract_primitive_impl(s), "could not deserialize value");
  ScopedErrorHandler throwing;
  EXPECT_DEATH(b.extract_primitive_impl(s), "could not deserialize value");
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
    std::string walk;
    std::size_t steps = 0;
    for (const auto& [k, value] : node) {
      walk += std::string(k) + "=" + value.value_or<std::string>("") + ";";
      EXPECT_EQ(value.use_count(), 3) << "a step shares the tree as operator[] does";
      ++steps;
    }
    EXPECT_TRUE(walk == expected && steps == node.size()) << key << ": " << walk;
  }
  EXPECT_EQ(doc.use_count(), 1);
  ryml_wrapper cleared;
  cleared.clear();
  EXPECT_TRUE(cleared.begin() == cleared.end());
}
