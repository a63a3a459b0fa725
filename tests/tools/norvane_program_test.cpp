// The norvane program as a user runs it: a child process on real files, with
// HOME and the XDG directories inside a temporary directory.
#include <norvane/hash.hpp>
#include <norvane/yaml.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "support/fault_support.hpp"
#include "support/test_support.hpp"

namespace {

namespace fs = std::filesystem;
using norvane::test::read_file;
using norvane::test::write_file;

struct outcome {
  int code = -1;
  std::string out, err;
  long peak_resident_KiB = 0;
};

std::vector<std::string> split(const std::string& text, char by = '\n') {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, by);) parts.push_back(part);
  return parts;
}

class NorvaneProgram : public ::testing::Test {
protected:
  // Runs `args` (found on PATH unless absolute) in the test's directory.
  outcome tool(const std::vector<std::string>& args, const fs::path& input = "/dev/null") {
    const auto out_path = capture / "out";
    const auto child = norvane::test::run_in_child([&]() -> std::string {
      ::setenv("HOME", home.path().c_str(), 1);
      ::setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
      ::setenv("XDG_STATE_HOME", (home / ".local/state").c_str(), 1);
      const int in = ::open(input.c_str(), O_RDONLY);
      const int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (in < 0 || out < 0 || ::chdir(dir.path().c_str()) != 0 || ::dup2(in, 0) < 0 || ::dup2(out, 1) < 0) {
        throw std::runtime_error("cannot redirect");
      }
      std::vector<char*> argv;
      for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execvp(argv[0], argv.data());
      throw std::runtime_error("cannot run " + args[0]);
    });
    return {child.signal == 0 ? child.exit_code : -1, read_file(out_path), child.errors,
            child.peak_resident_KiB};
  }
  outcome run(std::vector<std::string> args, const fs::path& input = "/dev/null") {
    args.insert(args.begin(), NORVANE_PROGRAM);
    return tool(args, input);
  }
  // Bytes not all alike, so a digest that skips or repeats a block differs.
  void make_file(const std::string& name, std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t x = 12345;
    for (auto& b : bytes) b = static_cast<char>((x = x * 1103515245 + 12345) >> 24);
    write_file(dir / name, bytes);
  }

  norvane::test::temp_dir dir, home, capture;
};

// Escaped names round-trip; many files, the early ones the slow ones, come
// back in argument order; "-" and a pipe named by path are read like files.
TEST_F(NorvaneProgram, HashPrintsWhatCoreutilsAndXxhsumPrint) {
  std::vector<std::string> files{"empty", "back\\slash", "new\nline", "big.bin"};
  for (const auto* name : {"empty", "large"}) write_file(dir / name, "");
  for (const auto* name : {"back\\slash", "new\nline"}) write_file(dir / name, name);
  make_file("big.bin", (3u << 20) + 7);  // many read windows, the last one short
  for (int i = 0; i < 16; ++i) {
    files.push_back("f" + std::to_string(i));
    make_file(files.back(), static_cast<std::size_t>((16 - i) * 40000 + 123));
  }
  for (const std::string algo : {"sha256", "sha1"}) {  // sha256 is the default
    std::vector<std::string> ours{"hash", "--algo=" + algo}, theirs{algo + "sum"};
    if (algo == "sha256") ours.pop_back();
    ours.insert(ours.end(), files.begin(), files.end());
    theirs.insert(theirs.end(), files.begin(), files.end());
    EXPECT_EQ(run(ours).out, tool(theirs).out) << algo;
  }
  EXPECT_EQ(run({"hash", "--algo=sha1", "-"}, dir / "big.bin").out,
            tool({"sha1sum", "-"}, dir / "big.bin").out);
  EXPECT_EQ(tool({"sh", "-c", std::string("cat big.bin | ") + NORVANE_PROGRAM + " hash /dev/stdin"}).out,
            tool({"sh", "-c", "cat big.bin | sha256sum /dev/stdin"}).out);

  const auto xxh3 = tool({"xxhsum", "-H3", "f0"}).out;    // "XXH3 (f0) = digest"
  const auto xxh128 = tool({"xxhsum", "-H2", "f0"}).out;  // "digest  f0"
  ASSERT_TRUE(xxh3.starts_with("XXH3 (f0) = ")) << xxh3;
  EXPECT_EQ(run({"hash", "--algo", "xxh64", "f0"}).out, xxh3.substr(12, 16) + "  f0\n");
  // A failure does not stop the files after it.
  const auto r = run({"hash", "--algo", "xxh128", "missing", "f0", "."});
  EXPECT_EQ(std::tie(r.code, r.out, r.err),
            std::make_tuple(1, xxh128,
                            "norvane: missing: No such file or directory\nnorvane: .: Is a directory\n"));
  // xxhsum's own lines verify, BSD-style ones naming their algorithm.
  write_file(dir / "xxh.list", xxh3 + xxh128);
  EXPECT_EQ(run({"hash", "--algo", "xxh128", "-c", "xxh.list"}).out, "f0: OK\nf0: OK\n");
  // Read through a fixed buffer, never mapped or loaded whole: a large file
  // adds little to the peak resident set an empty one shows.
  fs::resize_file(dir / "large", std::uintmax_t{64} << 20);
  EXPECT_LT(run({"hash", "large"}).peak_resident_KiB - run({"hash", "empty"}).peak_resident_KiB, 16 << 10);
}

// --check prints, summarises and exits as coreutils does on the same list:
// a changed file, a missing file, escaped names and a malformed line.
TEST_F(NorvaneProgram, CheckAgreesWithCoreutils) {
  for (const auto& [algo, flag] : {std::pair{"sha256", ""}, {"sha256", "--status"}, {"sha1", "--quiet"}}) {
    const auto coreutils = std::string(algo) + "sum";
    std::vector<std::string> hash_args{coreutils, "a", "b\\c", "n\nl", "good", "same"};
    for (std::size_t i = 1; i < hash_args.size(); ++i) write_file(dir / hash_args[i], hash_args[i]);
    write_file(dir / "list", tool(hash_args).out + "garbage line\n");
    write_file(dir / "a", "changed");
    fs::remove(dir / "good");
    std::vector<std::string> theirs{coreutils, "--check", "list"}, ours{"hash", "--algo", algo, "-c", "list"};
    if (*flag != 0) theirs.push_back(flag), ours.push_back(flag);
    auto expected = tool(theirs);
    const auto r = run(ours);
    for (std::size_t at; (at = expected.err.find(coreutils + ": ")) != std::string::npos;)
      expected.err.replace(at, coreutils.size(), "norvane");
    EXPECT_EQ(std::tie(r.code, r.out, r.err), std::tie(expected.code, expected.out, expected.err))
        << algo << flag;
  }
}

// A failure is one line on standard error naming its reason, nothing on
// standard output; bad usage exits with 2.
TEST_F(NorvaneProgram, FailuresAndBadUsageAreOneLineOnStandardError) {
  write_file(dir / "nothing", "not a digest line\n");
  write_file(dir / "ci.yml", "jobs:\n  build:\n    steps:\n      - name: compile\n");
  const std::pair<std::vector<std::string>, std::string> failures[] = {
      {{"hash", "/nonexistent"}, "norvane: /nonexistent: No such file or directory\n"},
      {{"hash", "-c", "/nonexistent"}, "norvane: /nonexistent: No such file or directory\n"},
      {{"hash", "--check", "nothing"}, "norvane: nothing: no properly formatted checksum lines found\n"},
      {{"settings", "set", "k", "{oops"}, "norvane: '{oops' is not a JSON value\n"},
      {{"settings", "get", "absent"}, "norvane: no setting 'absent'\n"},
      {{"yaml", "get", "ci.yml", "jobs.build.steps.2.name"},
       "norvane: 'jobs.build.steps.2' does not exist in 'ci.yml'\n"}};
  for (const auto& [args, err] : failures) {
    const auto r = run(args);
    EXPECT_EQ(std::tie(r.code, r.out, r.err), std::make_tuple(1, "", err));
  }
  for (const auto& usage :
       split("|frobnicate|info --bogus|info extra|hash|hash --algo md5 x|hash --json x|hash --algo|"
             "hash --quiet x|uuid -n many|uuid -n -1|yaml|yaml get a.yml path extra|yaml check --yaml a.yml|"
             "yaml lint x|settings|settings get|settings set k|settings drop k|--log-level loud info|"
             "completion|completion tcsh|help bogus",
             '|')) {
    const auto r = run(split(usage, ' '));
    EXPECT_TRUE(r.code == 2 && r.out.empty() && r.err.starts_with("norvane: ") && split(r.err).size() == 1)
        << usage << ": " << r.err;
  }
  // Asked for, the library's own line goes to standard error or the log
  // file, never to the results; above the error level nothing is logged.
  EXPECT_NE(run({"--log-level", "error", "settings", "set", "k", "{oops"}).err.find("[norvane] [error] "),
            std::string::npos);
  run({"--log-level", "error", "--log-file", "log.txt", "settings", "set", "k", "{oops"});
  EXPECT_NE(read_file(dir / "log.txt").find("[error] "), std::string::npos);
  run({"--log-level", "critical", "--log-file", "quiet.txt", "settings", "set", "k", "{oops"});
  EXPECT_EQ(read_file(dir / "quiet.txt"), "");
}

TEST_F(NorvaneProgram, HelpPagesDescribeOneCommand) {
  const std::pair<std::vector<std::string>, std::vector<std::string>> pages[] = {
      {{"--help"}, {"Commands:\n  info ", "\n  completion ", "--log-level LEVEL"}},
      {{"hash", "--help"},
       {"Usage: norvane hash [--algo ALGO] FILE...", "sha1, sha256, xxh64 or xxh128 (default: sha256)",
        "-c, --check", "--status", "--log-file PATH"}},
      {{"help", "yaml"},
       {"Usage: norvane yaml check FILE...\n       norvane yaml get FILE [PATH] [--yaml]"}}};
  for (const auto& [args, present] : pages) {
    const auto r = run(args);
    for (const auto& text : present) EXPECT_NE(r.out.find(text), std::string::npos) << text << "\n" << r.out;
    // Nothing of another command's options, nor of the parser's generic page.
    for (const char* text : {"--json", "(default: \"\")", "positional parameters"})
      EXPECT_EQ(r.out.find(text), std::string::npos) << args[0] << ": " << text;
  }
}

// The completion script, loaded by each real shell, completes the words a
// user types. zsh's compadd and _files only work inside its completion
// widget, so they are replaced by functions that print what they are given.
TEST_F(NorvaneProgram, CompletionInTheRealShells) {
  // Shell, its flag against startup files, set-up, printf format asking for the words typed.
  const std::array<std::string, 4> shells[] = {
      {"bash", "--norc", "",
       "COMP_WORDS=(%s); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _norvane; printf '%%s\\n' "
       "\"${COMPREPLY[@]}\""},
      {"zsh", "-f",
       "compdef() { : }\ncompadd() { local w; for w in \"${@[${@[(i)--]}+1,-1]}\"; do [[ $w == "
       "${words[CURRENT]}* ]] && print -r -- $w; done }\n_files() { print -r -- '<files>' }\n",
       "words=(%s); CURRENT=${#words}; _norvane"},
      {"fish", "--no-config", "", "complete -C '%s' | cut -f1"}};
  const std::pair<std::string, std::string> queries[] = {
      {"norvane ha", "hash\n"},
      {"norvane hash --algo x", "xxh64\nxxh128\n"},
      {"norvane --log-level error hash --st", "--status\n"},
      {"norvane yaml c", "check\n"},
      {"norvane completion f", "fish\n"},
      {"norvane uuid --c", "--count\n"}};
  for (const auto& [shell, no_startup_files, setup, format] : shells) {
    write_file(dir / ("script." + shell), run({"completion", shell}).out);
    for (const auto& [words, expected] : queries) {
      char ask[512];
      std::snprintf(ask, sizeof ask, format.c_str(), words.c_str());
      write_file(dir / "ask", setup + "source ./script." + shell + "\n" + ask + "\n");
      const auto got = tool({shell, no_startup_files, "ask"});
      EXPECT_EQ(got.out, expected) << shell << ": " << words << "\n" << got.err;
    }
  }
}

TEST_F(NorvaneProgram, YamlCheckAndGet) {
  write_file(dir / "good.yml", "a: 1\n");
  write_file(dir / "empty.yml", "");
  write_file(dir / "bad.yml", "a: 1\nb: 2\nc: [1, 2\nd: 4\n");  // the sequence on line 3 is never closed
  write_file(dir / "tab.yml", "a:\n\tb: 1\n");
  EXPECT_EQ(run({"yaml", "check", "good.yml", "empty.yml"}).code, 0);
  const auto r = run({"yaml", "check", "good.yml", "bad.yml", "tab.yml", "gone.yml"});
  // The parser's position, moved from its "file:LINE:COL (OFFSETB): " prefix.
  EXPECT_EQ(std::tie(r.code, r.out, r.err),
            std::make_tuple(1,
                            "bad.yml:3:4: flow sequence without a closing bracket\n"
                            "tab.yml:2:1: tab character may not be used as indentation\n",
                            "norvane: gone.yml: No such file or directory\n"));
  // Scalars print as text; maps and sequences as compact JSON (merge keys
  // resolved, quoted text kept as text), or as block YAML with --yaml.
  write_file(dir / "c.yml",
             "base: &b {image: nginx, restart: always}\nweb:\n  <<: *b\n  restart: \"no\"\n  ports: "
             "[\"8080\", 443, 1.5]\n  env: {A: ~, B: \"x\\ny\", C: true}\n  none: []\n");
  const std::pair<std::vector<std::string>, std::string> prints[] = {
      {{"web.ports.0"}, "8080\n"},
      {{"web.ports"}, "[\"8080\",443,1.5]\n"},
      {{"web.env"}, "{\"A\":null,\"B\":\"x\\ny\",\"C\":true}\n"},
      {{"web", "--yaml"},
       "image: nginx\nrestart: no\nports:\n  - \"8080\"\n  - 443\n  - 1.5\nenv:\n  A: null\n  B: "
       "\"x\\ny\"\n  C: true\nnone: []\n"},
      {{"base"}, "{\"image\":\"nginx\",\"restart\":\"always\"}\n"}};
  for (const auto& [args, expected] : prints) {
    std::vector<std::string> call{"yaml", "get", "c.yml"};
    call.insert(call.end(), args.begin(), args.end());
    EXPECT_EQ(run(call).out, expected) << args[0];
  }
}

TEST_F(NorvaneProgram, SettingsPersistBetweenRuns) {
  run({"settings", "set", "width", "640"});
  run({"settings", "set", "window", R"({"x":1,"y":2})"});
  run({"settings", "--file", "other.json", "set", "theme", "\"dark\""});
  run({"settings", "set", "n", "--", "-3"});  // a value that looks like an option follows --
  EXPECT_EQ(run({"settings", "get", "n"}).out, "-3\n");
  EXPECT_EQ(run({"settings", "list", "--file", "other.json"}).out, "theme=\"dark\"\n");
  EXPECT_EQ(run({"settings", "remove", "n"}).code, 0);
  EXPECT_EQ(run({"settings", "remove", "n"}).code, 1);  // gone already
  EXPECT_EQ(run({"settings", "list"}).out, "width=640\nwindow={\"x\":1,\"y\":2}\n");
  EXPECT_EQ(nlohmann::json::parse(read_file(home / ".config/norvane.norvane/settings.json")),
            nlohmann::json::parse(R"({"width":640,"window":{"x":1,"y":2}})"));
}

TEST_F(NorvaneProgram, UuidAndInfo) {
  const auto v4 = run({"uuid"}).out;
  EXPECT_TRUE(v4.size() == 37 && v4[14] == '4' && norvane::validate_uuid_str(v4.substr(0, 36))) << v4;
  EXPECT_EQ(run({"uuid", "--count=0"}).out, "");
  // Version 7 is drawn in order, so the text strictly increases in the order printed.
  const auto v7 = split(run({"uuid", "--v7", "-n", "200"}).out);
  EXPECT_TRUE(v7.size() == 200 && v7[0][14] == '7' && norvane::validate_uuid_str(v7[199]) &&
              std::adjacent_find(v7.begin(), v7.end(), std::greater_equal<>()) == v7.end());

  const auto info = nlohmann::json::parse(run({"info", "--json"}).out);
  EXPECT_TRUE(info["usable_cores"] >= 1 && info["usable_cores"] <= info["logical_cores"]) << info;
  EXPECT_TRUE(info["memory_limit_mib"] <= info["memory_mib"] && info["memory_available_mib"] > 0) << info;
  EXPECT_EQ(info["locations"].size(), 10u);
  EXPECT_EQ(info["locations"]["app_state"], (home / ".local/state/norvane.norvane").string());
  EXPECT_EQ(info["locations"]["home"], home.path().string());
  EXPECT_EQ(fs::weakly_canonical(info["image"].get<std::string>()), fs::weakly_canonical(NORVANE_PROGRAM));
  EXPECT_NE(run({"info"}).out.find("\napp_config: " + (home / ".config/norvane.norvane").string() + "\n"),
            std::string::npos);
  EXPECT_TRUE(run({"info", "--version"}).out.starts_with("norvane "));
  // Pinned to one CPU, the program may use one core whatever the host has.
  const auto pinned = tool({"taskset", "-c", "0", NORVANE_PROGRAM, "info", "--json"}).out;
  EXPECT_EQ(nlohmann::json::parse(pinned)["usable_cores"], 1);
}

}  // namespace
