// Every case of the YAML test suite: invalid inputs must give an error
// entry, valid ones must read without one and give the tree that the
// case's event stream (and its JSON, where there is one) describes.
#include <norvane/yaml.hpp>

#include "support/test_support.hpp"
#include "yaml/access.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <sstream>

namespace fs = std::filesystem;
using namespace norvane::yaml;
using norvane::test::read_file;
using norvane::yaml::details::access;

namespace {

// A normalised event: "+MAP", "-SEQ", "+DOC", "=VAL ~" (null) or
// "=VAL 'text" (present text, whatever its style).
using events = std::vector<std::string>;

std::string scalar_event(bool null, std::string_view text) {
  return null ? std::string("=VAL ~") : "=VAL '" + std::string(text);
}

std::string unescape_event_text(std::string_view s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    const auto at = i + 1 < s.size() && s[i] == '\\' ? std::string_view("n\nt\tr\rb\b\\\\").find(s[i + 1])
                                                     : std::string_view::npos;
    const bool escape = at != std::string_view::npos && at % 2 == 0;
    out += escape ? "\n\t\r\b\\"[at / 2] : s[i];
    i += escape;
  }
  return out;
}

// The expected stream with aliases replaced by what their anchor names,
// and with anchors, tags, styles and document markers dropped.
events expected_events(const std::string& text, bool& has_tags, bool& has_complex_key) {
  events out;
  std::map<std::string, events> anchored;
  std::vector<std::tuple<std::string, std::size_t, int>> open;  // name, first event, depth
  std::vector<std::pair<bool, bool>> containers;  // per open container: a map? is the next node a key?
  int depth = 0;
  has_tags = has_complex_key = false;
  const auto note_node = [&](bool is_container) {
    if (!containers.empty() && containers.back().first) {
      has_complex_key |= containers.back().second && is_container;
      containers.back().second = !containers.back().second;
    }
  };
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const std::string head = line.substr(0, 4);
    std::string rest = line.size() > 5 ? line.substr(5) : "", anchor;
    bool tagged = false;
    // Peel the anchor, the flow markers and the tag off the front of the rest.
    for (std::size_t cut = 0;; rest = cut == std::string::npos ? "" : rest.substr(cut)) {
      if (rest.starts_with('&')) {
        anchor = rest.substr(1, rest.find(' ') - 1);
        cut = rest.find(' ') == std::string::npos ? std::string::npos : rest.find(' ') + 1;
      } else if (rest.starts_with("{}") || rest.starts_with("[]")) {
        cut = rest.size() > 3 ? 3 : std::string::npos;
      } else if (rest.starts_with('<')) {
        has_tags = tagged = true;
        cut = rest.find("> ") == std::string::npos ? std::string::npos : rest.find("> ") + 2;
      } else {
        break;
      }
    }
    if (head == "+MAP" || head == "+SEQ") {
      note_node(true);
      if (!anchor.empty()) open.emplace_back(anchor, out.size(), depth);
      out.push_back(head);
      containers.emplace_back(head == "+MAP", true);
      ++depth;
    } else if (head == "-MAP" || head == "-SEQ") {
      out.push_back(head);
      containers.pop_back();
      for (--depth; !open.empty() && std::get<2>(open.back()) == depth; open.pop_back()) {
        anchored[std::get<0>(open.back())] =
            events(out.begin() + static_cast<long>(std::get<1>(open.back())), out.end());
      }
    } else if (head == "+DOC" || head == "-DOC") {
      out.push_back(head);
    } else if (head == "=VAL") {
      note_node(false);
      // The reader keeps a tagged empty scalar as present text ("!!str : x" has the key "").
      out.push_back(
          scalar_event(rest == ":" && !tagged, unescape_event_text(rest.substr(rest.empty() ? 0 : 1))));
      if (!anchor.empty()) anchored[anchor] = {out.back()};
    } else if (head == "=ALI") {
      const events& replay = anchored[rest.substr(1)];
      note_node(!replay.empty() && replay[0][0] == '+');
      out.insert(out.end(), replay.begin(), replay.end());
    }
  }
  return out;
}

void emit_value(const tree& t, std::size_t id, events& out) {
  const bool map = (t.type(id) & MAP) != 0;
  if (!map && (t.type(id) & SEQ) == 0)
    return out.push_back(scalar_event(t.val(id).data() == nullptr, t.val(id)));
  out.push_back(map ? "+MAP" : "+SEQ");
  for (std::size_t c = t.first_child(id); c != npos; c = t.next_sibling(c)) {
    if (map) out.push_back(scalar_event(t.key(c).data() == nullptr, t.key(c)));
    emit_value(t, c, out);
  }
  out.push_back(map ? "-MAP" : "-SEQ");
}

// The documents of a tree: the children of a stream root, else the root itself.
std::vector<std::size_t> documents(const tree& t) {
  std::vector<std::size_t> ids;
  if ((t.type(t.root_id()) & STREAM) == STREAM) {
    for (std::size_t c = t.first_child(t.root_id()); c != npos; c = t.next_sibling(c)) ids.push_back(c);
  } else if (t.type(t.root_id()) != NOTYPE) {
    ids.push_back(t.root_id());
  }
  return ids;
}

// The JSON a document stands for under the core schema.
nlohmann::json to_json(const tree& t, std::size_t id) {
  const node_type f = t.type(id);
  if ((f & (MAP | SEQ)) != 0) {
    nlohmann::json out = (f & MAP) != 0 ? nlohmann::json::object() : nlohmann::json::array();
    for (std::size_t c = t.first_child(id); c != npos; c = t.next_sibling(c)) {
      (f & MAP) != 0 ? out[std::string(t.key(c))] = to_json(t, c) : out.emplace_back(to_json(t, c));
    }
    return out;
  }
  const std::string v(t.val(id));
  if ((f & VALQUO) != 0) return v;
  if ((f & VALNIL) != 0 || t.val(id).data() == nullptr) return nullptr;
  if (v == "true" || v == "True" || v == "TRUE" || v == "false" || v == "False" || v == "FALSE") {
    return v[0] == 't' || v[0] == 'T';
  }
  const auto number = nlohmann::json::parse(v, nullptr, false);
  return number.is_number() ? number : nlohmann::json(v);
}

// Empty when the case reads as it should, else why not.
std::string run_case(const fs::path& dir, bool& complex_key_refused) {
  std::vector<std::string> errors;
  ryml_wrapper doc = read_yaml(read_file(dir / "in.yaml"), errors);
  if (fs::exists(dir / "error")) {
    return errors.size() == 1 && !doc.is_valid() ? "" : "invalid input read without an error";
  }
  bool has_tags = false, has_complex_key = false;
  const events expected = expected_events(read_file(dir / "test.event"), has_tags, has_complex_key);
  if (!errors.empty()) {
    complex_key_refused = has_complex_key &&
                          errors[0].find("maps and sequences as keys are not supported") != std::string::npos;
    return complex_key_refused ? "" : "valid input refused: " + errors[0];
  }
  const tree& t = *access::impl(doc)->shared_tree;
  events actual;
  std::vector<nlohmann::json> got, want;
  for (std::size_t d : documents(t)) {
    actual.push_back("+DOC");
    emit_value(t, d, actual);
    actual.push_back("-DOC");
    got.push_back(to_json(t, d));
  }
  if (actual != expected) {
    const auto [a, e] = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    return "tree differs at event " + std::to_string(a - actual.begin()) + ": got '" +
           (a != actual.end() ? *a : "<end>") + "', expected '" + (e != expected.end() ? *e : "<end>") + "'";
  }
  if (has_tags || !fs::exists(dir / "in.json")) return "";
  std::istringstream in(read_file(dir / "in.json"));
  try {
    for (nlohmann::json j; in >> std::ws, in.peek() != EOF; want.push_back(j)) in >> j;
  } catch (const std::exception&) {
    return "";  // a few cases hold JSON that is not one value per document
  }
  return got == want ? ""
                     : "JSON differs: got " + nlohmann::json(got).dump() + ", expected " +
                           nlohmann::json(want).dump();
}

}  // namespace

TEST(YamlConformance, EveryCaseOfTheTestSuite) {
  const fs::path root = NORVANE_YAML_TEST_SUITE_DIR;
  if (!fs::is_directory(root)) {
    GTEST_SKIP() << "YAML test suite not found at " << root
                 << " (set NORVANE_YAML_TEST_SUITE_DIR when configuring)";
  }
  // Case folders hold in.yaml, at the top or one level down; sorted by path.
  std::vector<fs::path> cases;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_directory() && fs::exists(entry.path() / "in.yaml")) cases.push_back(entry.path());
  }
  std::sort(cases.begin(), cases.end());
  ASSERT_GT(cases.size(), 300u) << "the suite at " << root << " looks incomplete";
  std::size_t refused = 0;
  for (const auto& dir : cases) {
    bool complex_key_refused = false;
    EXPECT_EQ(run_case(dir, complex_key_refused), "") << dir.lexically_relative(root).string();
    refused += complex_key_refused;
  }
  std::printf("conformance: %zu cases (%zu of them pass by refusing a complex key)\n", cases.size(), refused);
}
