// read_yaml and the error handlers: error texts and positions, the
// callbacks in force afterwards, and documents in the shapes users write.
#include <norvane/yaml.hpp>

#include "yaml/access.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"
#include "yaml/yaml_test_util.hpp"

#include "support/test_support.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace norvane::yaml;
using norvane::test::read_ok;
using norvane::yaml::details::access;

namespace {

std::string error_of(std::string_view text) {
  std::vector<std::string> errors;
  const ryml_wrapper h = read_yaml(text, errors);
  EXPECT_FALSE(h.is_valid());
  EXPECT_EQ(h.size(), 0u);
  return errors.size() == 1 ? errors[0] : "<" + std::to_string(errors.size()) + " errors>";
}

bool defaults_in_force() { return get_callbacks().error == default_callbacks().error; }

}  // namespace

TEST(YamlRead, EmptyTextGivesAValidEmptyRoot) {
  std::vector<std::string> errors = {"earlier"};
  const ryml_wrapper h = read_yaml("", errors);
  EXPECT_TRUE(h.is_valid());
  EXPECT_EQ(h.size(), 1u);
  EXPECT_FALSE(h.is_primitive());
  EXPECT_FALSE(h.is_structured());
  EXPECT_EQ(errors, std::vector<std::string>{"earlier"});
  EXPECT_TRUE(read_ok("# only a comment\n").is_valid());
}

TEST(YamlRead, ErrorsCarryTheParsersMessageAndPosition) {
  // An unclosed flow collection is reported at its opening bracket.
  EXPECT_EQ(error_of("a: [1, 2"), "file:1:4 (3B): flow sequence without a closing bracket");
  EXPECT_EQ(error_of("a: 1\nb: [1, 2\nc: 3\n"), "file:2:4 (8B): flow sequence without a closing bracket");
  EXPECT_EQ(error_of("x: {a: [1], b: {c: 2}"), "file:1:4 (3B): flow mapping without a closing brace");
  EXPECT_EQ(error_of("- [a, {b: c}, [d]\n"), "file:1:3 (2B): flow sequence without a closing bracket");
  EXPECT_EQ(error_of("key: \"unterminated\n"), "file:1:7 (6B): double-quoted scalar without closing quote");
  EXPECT_EQ(error_of("- a\nb: c\n"), "file:2:1 (4B): invalid scalar at the end of block sequence");
  // Columns count characters, offsets count bytes.
  EXPECT_EQ(error_of("é: \"ü\n"), "file:1:5 (5B): double-quoted scalar without closing quote");
  // Faults found by the reader itself use the same form.
  EXPECT_EQ(error_of("x: 1\ny: *nope\n"), "file:2:4 (8B): unknown anchor 'nope'");
  EXPECT_EQ(error_of("? [a, b]\n: v\n"), "file:1:3 (2B): maps and sequences as keys are not supported");
}

TEST(YamlRead, ErrorsAppendInOrderAndDefaultsComeBack) {
  std::vector<std::string> errors = {"kept"};
  EXPECT_FALSE(read_yaml("a: [1", errors).is_valid());
  EXPECT_TRUE(defaults_in_force());
  EXPECT_FALSE(read_yaml("b: {x", errors).is_valid());
  ASSERT_EQ(errors.size(), 3u);
  EXPECT_EQ(errors[0], "kept");
  EXPECT_EQ(errors[1].rfind("file:", 0), 0u);
  EXPECT_NE(errors[1].find("flow sequence"), std::string::npos);
  EXPECT_NE(errors[2].find("flow mapping"), std::string::npos);

  // Whatever was installed before, the defaults are in force afterwards.
  set_callbacks(ErrorHandler::callbacks());
  read_ok("a: 1\n");
  EXPECT_TRUE(defaults_in_force());
  set_callbacks(ErrorHandler::callbacks());
  EXPECT_FALSE(read_yaml("[", errors).is_valid());
  EXPECT_TRUE(defaults_in_force());
}

TEST(YamlRead, TheTextIsCopied) {
  auto text = std::make_unique<std::string>("name: copied\nlist: [\"a\\tb\", c]\n");
  const ryml_wrapper h = read_ok(*text);
  text->assign(text->size(), 'X');
  text.reset();
  EXPECT_EQ(h["name"].as<std::string>(), "copied");
  EXPECT_EQ(h["list"][0].as<std::string>(), "a\tb");
}

TEST(YamlRead, SeveralDocumentsHangUnderAStreamRoot) {
  const ryml_wrapper one = read_ok("--- {a: 1}\n");
  EXPECT_TRUE(one.is_object());
  EXPECT_EQ(one["a"].as<int>(), 1);

  const ryml_wrapper many = read_ok("--- {a: 1}\n--- plain\n---\n- x\n");
  EXPECT_TRUE(many.is_structured());
  EXPECT_TRUE(many.is_array()) << "a stream is a sequence of documents";
  EXPECT_FALSE(many.is_object());
  ASSERT_EQ(many.size(), 3u);
  EXPECT_EQ(many[0]["a"].as<int>(), 1);
  EXPECT_EQ(many[1].as<std::string>(), "plain");
  EXPECT_EQ(many[2][0].as<std::string>(), "x");
  EXPECT_EQ(access::impl(many)->shared_tree->type(access::impl(many)->shared_tree->root_id()), STREAM);
}

TEST(YamlErrorHandler, ThrowsFormattedTextAndScopesTheHandler) {
  try {
    ErrorHandler::on_error("boom here", 4, location{"src", 10, 3, 4});
    FAIL() << "on_error returned";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "src:3:4 (10B): boom");
  }
  EXPECT_THROW(ErrorHandler::s_error("x", 1, location{}, nullptr), std::runtime_error);
  EXPECT_EQ(ErrorHandler::callbacks().error, &ErrorHandler::s_error);

  EXPECT_TRUE(defaults_in_force());
  {
    ScopedErrorHandler scope;
    EXPECT_EQ(get_callbacks().error, &ErrorHandler::s_error);
    EXPECT_NE(get_callbacks().user_data, nullptr);
  }
  EXPECT_TRUE(defaults_in_force());

  // Trees take the callbacks in force when they are made.
  {
    ScopedErrorHandler scope;
    const tree t;
    EXPECT_EQ(t.get_callbacks().error, &ErrorHandler::s_error);
  }
  set_callbacks(callbacks{});
  EXPECT_TRUE(defaults_in_force()) << "a set without an error function installs the defaults";
}

TEST(YamlErrorHandlerDeathTest, DefaultErrorFunctionPrintsAndAborts) {
  EXPECT_DEATH(default_callbacks().error("boom", 4, location{"src", 7, 2, 3}, nullptr),
               "src:2:3 \\(7B\\): boom");
}

TEST(YamlRead, ContinuousIntegrationWorkflow) {
  const ryml_wrapper ci = read_ok(R"(# Build and test on every push.
name: CI
on:
  push:
    branches: [main, 'release/**']
  pull_request:
env:
  BUILD_TYPE: RelWithDebInfo
  RETRIES: 3
jobs:
  build:
    runs-on: ${{ matrix.os }}
    strategy:
      fail-fast: false
      matrix:
        os: [ubuntu-22.04, macos-13]
        compiler: [gcc, clang]
    steps:
      - uses: actions/checkout@v4
      - name: Configure
        run: cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=${{ env.BUILD_TYPE }}
      - name: Test
        run: |
          ctest --test-dir build --output-on-failure
          echo "done: #1"
        timeout-minutes: 30
)");
  EXPECT_EQ(ci["name"].as<std::string>(), "CI");
  EXPECT_EQ(ci["on"]["push"]["branches"].size(), 2u);
  EXPECT_EQ(ci["on"]["push"]["branches"][1].as<std::string>(), "release/**");
  EXPECT_TRUE(ci["on"]["pull_request"].is_null());
  EXPECT_EQ(ci["env"]["RETRIES"].as<int>(), 3);
  const ryml_wrapper build = ci["jobs"]["build"];
  EXPECT_EQ(build["runs-on"].as<std::string>(), "${{ matrix.os }}");
  EXPECT_EQ(build["strategy"]["fail-fast"].get<bool>(), false);
  EXPECT_EQ(build["strategy"]["matrix"]["compiler"][1].as<std::string>(), "clang");
  const ryml_wrapper steps = build["steps"];
  ASSERT_EQ(steps.size(), 3u);
  EXPECT_EQ(steps[0]["uses"].as<std::string>(), "actions/checkout@v4");
  EXPECT_EQ(steps[2]["run"].as<std::string>(),
            "ctest --test-dir build --output-on-failure\necho \"done: #1\"\n");
  EXPECT_EQ(steps[2]["timeout-minutes"].as<int>(), 30);
  EXPECT_EQ(steps[2][2].key(), "timeout-minutes");
}

TEST(YamlRead, ComposeFileWithAnchorsAndAliases) {
  const ryml_wrapper compose = read_ok(R"(version: "3.9"
x-env: &common-env
  TZ: Europe/Paris
  LOG_LEVEL: info
services:
  db:
    image: postgres:16
    environment: *common-env
    ports:
      - "5432:5432"
    healthcheck: {test: [CMD, pg_isready], interval: 10s, retries: 5}
  web:
    image: &img registry.example.com/web:1.4.2
    depends_on: [db]
    environment: *common-env
    labels:
      mirror: *img
    command: ["serve", "--port", "8080"]
volumes:
  data: {}
)");
  EXPECT_EQ(compose["version"].as<std::string>(), "3.9");
  EXPECT_TRUE(compose["version"].is_number_float()) << "classification reads the text, quoted or not";
  const ryml_wrapper db = compose["services"]["db"];
  EXPECT_EQ(db["environment"]["TZ"].as<std::string>(), "Europe/Paris");
  EXPECT_EQ(compose["services"]["web"]["environment"]["LOG_LEVEL"].as<std::string>(), "info");
  EXPECT_EQ(db["ports"][0].as<std::string>(), "5432:5432");
  EXPECT_EQ(db["healthcheck"]["test"][1].as<std::string>(), "pg_isready");
  EXPECT_EQ(db["healthcheck"]["retries"].as<int>(), 5);
  const ryml_wrapper web = compose["services"]["web"];
  EXPECT_EQ(web["labels"]["mirror"].as<std::string>(), "registry.example.com/web:1.4.2");
  EXPECT_EQ(web["command"].size(), 3u);
  EXPECT_EQ(web["command"][2].as<int>(), 8080);
  EXPECT_TRUE(compose["volumes"]["data"].is_object());
  EXPECT_EQ(compose["volumes"]["data"].size(), 0u);
}

TEST(YamlRead, KubernetesManifestWithBlockScalars) {
  const ryml_wrapper docs = read_ok(R"(apiVersion: v1
kind: ConfigMap
metadata:
  name: app-config   # trailing comment
  labels: {app: web, tier: "front end"}
data:
  nginx.conf: |
    server {
      listen 80;
    }
  motd: >
    Welcome to
    the service.

    Second paragraph.
  keep: |+
    kept

  strip: >-
    no final
    newline
---
apiVersion: apps/v1
kind: Deployment
spec:
  replicas: 2
  template:
    spec:
      containers:
        - name: web
          image: nginx:1.25
          args: ['--port', '80']
          resources: {limits: {cpu: 500m, memory: 128Mi}}
)");
  ASSERT_EQ(docs.size(), 2u);
  const ryml_wrapper cm = docs[0];
  EXPECT_EQ(cm["metadata"]["name"].as<std::string>(), "app-config");
  EXPECT_EQ(cm["metadata"]["labels"]["tier"].as<std::string>(), "front end");
  EXPECT_EQ(cm["data"]["nginx.conf"].as<std::string>(), "server {\n  listen 80;\n}\n");
  EXPECT_EQ(cm["data"]["motd"].as<std::string>(), "Welcome to the service.\nSecond paragraph.\n");
  EXPECT_EQ(cm["data"]["keep"].as<std::string>(), "kept\n\n");
  EXPECT_EQ(cm["data"]["strip"].as<std::string>(), "no final newline");
  const ryml_wrapper container = docs[1]["spec"]["template"]["spec"]["containers"][0];
  EXPECT_EQ(docs[1]["spec"]["replicas"].as<int>(), 2);
  EXPECT_EQ(container["image"].as<std::string>(), "nginx:1.25");
  EXPECT_EQ(container["args"][0].as<std::string>(), "--port");
  EXPECT_EQ(container["resources"]["limits"]["memory"].as<std::string>(), "128Mi");
}

TEST(YamlRead, NonAsciiTextAndEscapes) {
  const ryml_wrapper h = read_ok(
      "name: Zoë\ncity: 東京\n\"clé\": \"caf\\u00e9 \\U0001F600\"\nemoji: 🚀 launch\nsingle: 'it''s'\nquotes: "
      "''''''''\n");
  EXPECT_EQ(h["name"].as<std::string>(), "Zoë");
  EXPECT_EQ(h["city"].as<std::string>(), "東京");
  EXPECT_EQ(h["clé"].as<std::string>(), "café 😀");
  EXPECT_EQ(h["emoji"].as<std::string>(), "🚀 launch");
  EXPECT_EQ(h["single"].as<std::string>(), "it's");
  EXPECT_EQ(h["quotes"].as<std::string>(), "'''") << "doubled quotes in a one-line scalar";
}

TEST(YamlRead, ParserDiagnosticsAreNotPrinted) {
  norvane::test::temp_dir dir;
  const auto path = dir / "stderr.txt";
  std::fflush(stderr);
  const int saved = ::dup(2);
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(file, 0);
  ::dup2(file, 2);
  std::vector<std::string> errors;
  const bool valid = read_yaml("a: [1, 2\nb: \"open\n\tc: {", errors).is_valid();
  std::fflush(stderr);
  ::dup2(saved, 2);
  ::close(saved);
  ::close(file);
  EXPECT_FALSE(valid);
  EXPECT_EQ(errors.size(), 1u);
  EXPECT_EQ(norvane::test::read_file(path), "");
}

TEST(YamlRead, EveryReportedPositionLiesWithinTheText) {
  for (const std::string text :
       {"a: [1, 2", "a: {b: 1\n", "a: 'open\n", "a: \"open", "- a\n- [", "k: v\n  x: y\n", "[1, 2]]\n",
        "a: b: c\n", "%YAML 1.2\n%YAML 1.2\n---\n", "? a\n? b\n-\n"}) {
    std::vector<std::string> errors;
    EXPECT_FALSE(read_yaml(text, errors).is_valid()) << text;
    ASSERT_EQ(errors.size(), 1u) << text;
    std::size_t line = 0;
    std::size_t column = 0;
    std::size_t offset = 0;
    ASSERT_EQ(std::sscanf(errors[0].c_str(), "file:%zu:%zu (%zuB)", &line, &column, &offset), 3) << errors[0];
    EXPECT_LT(offset, text.size()) << errors[0];
    const auto lines =
        static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + (text.ends_with('\n') ? 0 : 1);
    EXPECT_LE(line, lines) << text << " -> " << errors[0];
    EXPECT_GE(line, 1u);
    EXPECT_GE(column, 1u);
  }
}

// Block scalars without content, in every position a document can hold them.
TEST(YamlRead, EmptyScalarsReadAsEmptyText) {
  struct row {
    const char* text;
    std::vector<std::string> path;  // numbers index sequences and streams
    const char* expected;
  };
  const row rows[] = {
      {"a: |\n", {"a"}, ""},
      {"a: >\n", {"a"}, ""},
      {"a: |-\n", {"a"}, ""},
      {"a: |+\n", {"a"}, ""},
      {"a: >-\n", {"a"}, ""},
      {"a: |", {"a"}, ""},
      {"a: >", {"a"}, ""},
      {"a: |+", {"a"}, ""},
      {"a: |  # comment\n", {"a"}, ""},
      {"a: |\nb: 1\n", {"a"}, ""},
      {"a: >-\nb: 1\n", {"a"}, ""},
      {"a: |+\n\nb: 1\n", {"a"}, "\n"},
      {"- |\n- >\n", {"0"}, ""},
      {"- |\n- >\n", {"1"}, ""},
      {"- |+\n- >-", {"1"}, ""},
      {"outer:\n  inner: |\n", {"outer", "inner"}, ""},
      {"--- |\n--- >-\n", {"0"}, ""},
      {"--- |\n--- >-\n", {"1"}, ""},
      {"--- a\n--- |+\n", {"1"}, ""},
      {"? |\n: x\n", {""}, "x"},
      {"!!str : bar\n", {""}, "bar"},
      {"a: !!str\n", {"a"}, ""},
      {"a: \"\"\n", {"a"}, ""},
  };
  for (const row& r : rows) {
    ryml_wrapper node = read_ok(r.text);
    for (const std::string& step : r.path) {
      node = !step.empty() && std::isdigit(static_cast<unsigned char>(step[0]))
                 ? std::as_const(node)[std::stoul(step)]
                 : std::as_const(node)[step];
    }
    ASSERT_TRUE(node.is_valid()) << r.text;
    EXPECT_EQ(node.get<std::string>(), r.expected) << r.text;
  }
}

TEST(YamlRead, MergeKeysMergeNamedMapsAndLocalKeysWin) {
  struct row {
    const char* text;
    const char* key;
    std::string expected;  // the map's entries as "key=value;", in order
  };
  const char* bases = "a: &a {x: 1, y: 2}\nb: &b {y: 3, z: 4}\n";
  const row rows[] = {
      {"m:\n  <<: *a\n", "m", "x=1;y=2;"},
      {"m:\n  <<: *a\n  y: local\n", "m", "x=1;y=local;"},
      {"m:\n  y: local\n  <<: *a\n", "m", "y=local;x=1;"},
      {"m:\n  <<: [*a, *b]\n", "m", "x=1;y=2;z=4;"},
      {"m:\n  <<: [*b, *a]\n  z: 0\n", "m", "y=3;x=1;z=0;"},
      {"m: {<<: {p: q}, r: s}\n", "m", "p=q;r=s;"},
      {"n: &n {<<: *a, w: 5}\nm: {<<: *n, x: 9}\n", "m", "y=2;w=5;x=9;"},
      {"m: {\"<<\": *a}\n", "m", "<<=;"},
      {"m: {<<: plain}\n", "m", "<<=plain;"},
      {"m: {<<: &inline {p: {q: r}}}\nn: *inline\n", "n", "p=;"},
      {"m: {<<: &inline {p: q}}\nn: *inline\n", "m", "p=q;"},
  };
  for (const row& r : rows) {
    const ryml_wrapper doc = read_ok(std::string(bases) + r.text);
    std::string entries;
    for (const auto& [key, value] : doc[r.key]) {
      entries += std::string(key) + "=" + value.value_or<std::string>("") + ";";
    }
    EXPECT_EQ(entries, r.expected) << r.text;
  }
  std::vector<std::string> errors;
  const ryml_wrapper off = read_yaml(std::string(bases) + "m: {<<: *a}\n", errors, read_options{false});
  EXPECT_TRUE(off["m"]["<<"].is_object()) << "merging can be turned off";
  EXPECT_FALSE(off["m"]["x"].is_valid());
}
