// The norvane program as a user runs it: a child process on real files, with
// HOME and the XDG directories inside a temporary directory.
#include <norvane/hash.hpp>
#include <norvane/yaml.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.hpp"

namespace {

namespace fs = std::filesystem;
using norvane::test::read_file;
using norvane::test::temp_dir;
using norvane::test::write_file;

struct outcome {
  int code = -1;
  std::string out;
  std::string err;
  long peak_resident_KiB = 0;
};

// Runs `argv` (the program first, found on PATH unless absolute) in `cwd`
// with HOME and the XDG directories under `home`, standard input from
// `input` (or /dev/null).
outcome run_in(const fs::path& cwd, const fs::path& home, const std::vector<std::string>& args,
               const fs::path& input = "/dev/null") {
  const temp_dir capture;
  const auto out_path = capture / "out";
  const auto err_path = capture / "err";
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::setenv("HOME", home.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", (home / "share").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (home / ".cache").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (home / ".local/state").c_str(), 1);
    const int in = ::open(input.c_str(), O_RDONLY);
    const int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || out < 0 || err < 0 || ::chdir(cwd.c_str()) != 0 || ::dup2(in, 0) < 0 ||
        ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0) {
      ::_exit(127);
    }
    std::vector<char*> argv;
    for (const auto& a : args) {
      argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  rusage usage{};
  ::wait4(pid, &status, 0, &usage);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(out_path), read_file(err_path),
          usage.ru_maxrss};
}

// What a shell command prints, run in `cwd`.
std::string shell_output(const fs::path& cwd, const std::string& command) {
  const std::string line = "cd '" + cwd.string() + "' && " + command;
  FILE* pipe = ::popen(line.c_str(), "r");
  std::string text;
  char block[4096];
  for (std::size_t n; (n = std::fread(block, 1, sizeof block, pipe)) > 0;) {
    text.append(block, n);
  }
  ::pclose(pipe);
  return text;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

class norvane_program : public ::testing::Test {
protected:
  outcome run(std::vector<std::string> args, const fs::path& input = "/dev/null") {
    args.insert(args.begin(), NORVANE_PROGRAM);
    return tool(args, input);
  }
  // Another program, such as sha256sum, in the same place.
  outcome tool(const std::vector<std::string>& args, const fs::path& input = "/dev/null") {
    return run_in(dir.path(), home.path(), args, input);
  }
  // A file of `size` bytes that are not all alike, so a digest that skips
  // or repeats a block differs.
  void make_file(const std::string& name, std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t x = 12345;
    for (auto& b : bytes) {
      x = x * 1103515245 + 12345;
      b = static_cast<char>(x >> 24);
    }
    write_file(dir / name, bytes);
  }

  temp_dir dir;
  temp_dir home;
};

TEST_F(norvane_program, hash_output_equals_sha256sum_and_sha1sum) {
  write_file(dir / "empty", "");
  write_file(dir / "abc.txt", "abc");
  make_file("two pages, and some", 2 * 4096 + 123);
  make_file("big.bin", (3u << 20) + 7);  // many read windows, the last one short
  // sha256sum escapes these two names; lists must round-trip.
  write_file(dir / "back\\slash", "b");
  write_file(dir / "new\nline", "n");
  const std::vector<std::string> files{"empty",   "abc.txt",     "two pages, and some",
                                       "big.bin", "back\\slash", "new\nline"};
  for (const std::string algo : {"sha256", "sha1"}) {
    std::vector<std::string> ours{"hash", "--algo", algo};
    std::vector<std::string> theirs{algo + "sum"};
    ours.insert(ours.end(), files.begin(), files.end());
    theirs.insert(theirs.end(), files.begin(), files.end());
    const auto r = run(ours);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, tool(theirs).out) << algo;
  }
  // sha256 is the default; "-" reads standard input, as sha256sum does.
  EXPECT_EQ(run({"hash", "abc.txt"}).out, tool({"sha256sum", "abc.txt"}).out);
  EXPECT_EQ(run({"hash", "--algo=sha1", "-"}, dir / "big.bin").out,
            tool({"sha1sum", "-"}, dir / "big.bin").out);
  // A pipe named by path is read like any file.
  EXPECT_EQ(shell_output(dir.path(), std::string("cat big.bin | ") + NORVANE_PROGRAM + " hash /dev/stdin"),
            shell_output(dir.path(), "cat big.bin | sha256sum /dev/stdin"));
}

TEST_F(norvane_program, xxh_digests_match_xxhsum_and_failures_do_not_stop_the_rest) {
  make_file("data", 5000);
  const auto xxh3 = tool({"xxhsum", "-H3", "data"}).out;    // "XXH3 (data) = digest"
  const auto xxh128 = tool({"xxhsum", "-H2", "data"}).out;  // "digest  data"
  ASSERT_TRUE(xxh3.starts_with("XXH3 (data) = ")) << xxh3;
  EXPECT_EQ(run({"hash", "--algo", "xxh64", "data"}).out, xxh3.substr(14, 16) + "  data\n");
  const auto r = run({"hash", "--algo", "xxh128", "missing", "data", "."});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, xxh128);
  EXPECT_EQ(r.err, "norvane: missing: No such file or directory\nnorvane: .: Is a directory\n");
  // xxhsum's own lines verify, BSD-style ones naming their algorithm.
  write_file(dir / "xxh.list", xxh3 + xxh128);
  const auto checked = run({"hash", "--algo", "xxh128", "-c", "xxh.list"});
  EXPECT_EQ(checked.code, 0) << checked.err;
  EXPECT_EQ(checked.out, "data: OK\ndata: OK\n");
}

// The file is read through a fixed buffer, never mapped or loaded whole: a
// large file adds little to the peak resident set an empty one shows (which
// also holds the forked copy of this test).
TEST_F(norvane_program, hashing_a_large_file_keeps_the_resident_set_small) {
  write_file(dir / "empty", "");
  write_file(dir / "large", "");
  fs::resize_file(dir / "large", std::uintmax_t{64} << 20);
  for (const std::string algo : {"sha256", "xxh64"}) {
    const auto small = run({"hash", "--algo", algo, "empty"});
    const auto large = run({"hash", "--algo", algo, "large"});
    EXPECT_EQ(large.code, 0) << large.err;
    EXPECT_LT(large.peak_resident_KiB - small.peak_resident_KiB, 16 << 10) << algo;
  }
}

// Many files at once come back in argument order.
TEST_F(norvane_program, many_files_keep_their_order) {
  std::vector<std::string> args{"hash", "--algo", "sha1"};
  std::vector<std::string> sums{"sha1sum"};
  for (int i = 0; i < 24; ++i) {
    const auto name = "f" + std::to_string(i);
    make_file(name, static_cast<std::size_t>((24 - i) * 40000));  // early files are the slow ones
    args.push_back(name);
    sums.push_back(name);
  }
  EXPECT_EQ(run(args).out, tool(sums).out);
}

// --check prints, summarises and exits as sha256sum --check does on the same
// list: a changed file, a missing file, escaped names and a malformed line.
TEST_F(norvane_program, check_agrees_with_coreutils) {
  struct check_case {
    std::string algo;
    std::vector<std::string> flags;
  };
  const check_case cases[] = {
      {"sha256", {}}, {"sha256", {"--quiet"}}, {"sha256", {"--status"}}, {"sha1", {}}, {"sha1", {"--quiet"}},
  };
  for (const auto& c : cases) {
    const auto coreutils = c.algo + "sum";
    const std::vector<std::string> files{"a", "b\\c", "n\nl", "good", "same"};
    for (const auto& name : files) {
      write_file(dir / name, name);
    }
    std::vector<std::string> hash_args{coreutils};
    hash_args.insert(hash_args.end(), files.begin(), files.end());
    write_file(dir / "list", tool(hash_args).out + "garbage line\n");
    write_file(dir / "a", "changed");
    fs::remove(dir / "good");

    std::vector<std::string> theirs{coreutils, "--check", "list"};
    std::vector<std::string> ours{"hash", "--algo", c.algo, "-c", "list"};
    theirs.insert(theirs.end(), c.flags.begin(), c.flags.end());
    ours.insert(ours.end(), c.flags.begin(), c.flags.end());
    const auto expected = tool(theirs);
    const auto r = run(ours);
    std::string expected_err = expected.err;
    for (std::size_t at; (at = expected_err.find(coreutils + ": ")) != std::string::npos;) {
      expected_err.replace(at, coreutils.size(), "norvane");
    }
    const auto label = coreutils + (c.flags.empty() ? "" : " " + c.flags[0]);
    EXPECT_EQ(r.code, expected.code) << label;
    EXPECT_EQ(r.out, expected.out) << label;
    EXPECT_EQ(r.err, expected_err) << label;
  }
  write_file(dir / "nothing", "not a digest line\n");
  const auto none = run({"hash", "--check", "nothing"});
  EXPECT_EQ(none.code, 1);
  EXPECT_EQ(none.err, "norvane: nothing: no properly formatted checksum lines found\n");
}

TEST_F(norvane_program, help_pages_describe_one_command) {
  struct help_case {
    std::vector<std::string> args;
    std::vector<std::string> present;
    std::vector<std::string> absent;
  };
  const help_case cases[] = {
      {{"--help"}, {"Commands:\n  info ", "\n  completion ", "--log-level LEVEL"}, {"--algo", "--json"}},
      {{"hash", "--help"},
       {"Usage: norvane hash [--algo ALGO] FILE...", "sha1, sha256, xxh64 or xxh128 (default: sha256)",
        "-c, --check", "--status", "--log-file PATH"},
       {"--json", "--count"}},
      {{"help", "yaml"},
       {"Usage: norvane yaml check FILE...\n       norvane yaml get FILE [PATH] [--yaml]"},
       {"--algo"}},
      {{"help", "uuid"}, {"-n, --count N", "(default: 1)"}, {"--file"}},
  };
  for (const auto& c : cases) {
    const auto r = run(c.args);
    EXPECT_EQ(r.code, 0) << c.args[0];
    for (const auto& text : c.present) {
      EXPECT_NE(r.out.find(text), std::string::npos) << c.args[0] << ": " << text << "\n" << r.out;
    }
    for (const auto& text : c.absent) {
      EXPECT_EQ(r.out.find(text), std::string::npos) << c.args[0] << ": " << text;
    }
    // Nothing of the parser's generic page.
    EXPECT_EQ(r.out.find("(default: \"\")"), std::string::npos);
    EXPECT_EQ(r.out.find("positional parameters"), std::string::npos);
  }
}

// Each failure is one line on standard error naming its reason, nothing on
// standard output, whatever the library logs at the default level.
TEST_F(norvane_program, failures_are_reported_once_with_their_reason) {
  struct failure_case {
    std::vector<std::string> args;
    std::string err;
  };
  const failure_case cases[] = {
      {{"hash", "/nonexistent"}, "norvane: /nonexistent: No such file or directory\n"},
      {{"hash", "-c", "/nonexistent"}, "norvane: /nonexistent: No such file or directory\n"},
      {{"settings", "set", "k", "{oops"}, "norvane: '{oops' is not a JSON value\n"},
  };
  for (const auto& c : cases) {
    const auto r = run(c.args);
    EXPECT_EQ(r.code, 1) << c.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, c.err);
  }
  // Asked for, the library's own line goes to standard error, not to the results.
  const auto logged = run({"--log-level", "error", "settings", "set", "k", "{oops"});
  EXPECT_EQ(logged.out, "");
  EXPECT_NE(logged.err.find("[norvane] [error] "), std::string::npos) << logged.err;
}

// The completion script, loaded by each real shell, completes the words a
// user types. zsh's compadd and _files only work inside its completion
// widget, so they are replaced by functions that print what they are given.
TEST_F(norvane_program, completion_in_the_real_shells) {
  const std::string zsh_stubs =
      "compdef() { : }\n"
      "compadd() { local w; for w in \"${@[${@[(i)--]}+1,-1]}\"; do [[ $w == ${words[CURRENT]}* ]] && print "
      "-r -- $w; "
      "done }\n"
      "_files() { print -r -- '<files>' }\n";
  struct shell_case {
    std::string shell;
    std::string no_startup_files;
    std::string setup;
    // printf format: the words typed, the last one partial.
    std::string ask;
  };
  const shell_case shells[] = {
      {"bash", "--norc", "",
       "COMP_WORDS=(%s); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _norvane; printf '%%s\\n' "
       "\"${COMPREPLY[@]}\""},
      {"zsh", "-f", zsh_stubs, "words=(%s); CURRENT=${#words}; _norvane"},
      {"fish", "--no-config", "", "complete -C '%s' | cut -f1"},
  };
  struct query {
    std::string words;
    std::string expected;
  };
  const query queries[] = {
      {"norvane ha", "hash\n"},
      {"norvane hash --al", "--algo\n"},
      {"norvane hash --algo x", "xxh64\nxxh128\n"},
      {"norvane --log-level error hash --st", "--status\n"},
      {"norvane yaml c", "check\n"},
      {"norvane completion f", "fish\n"},
      {"norvane uuid --c", "--count\n"},
  };
  for (const auto& sh : shells) {
    const auto r = run({"completion", sh.shell});
    ASSERT_EQ(r.code, 0) << sh.shell << r.err;
    write_file(dir / ("script." + sh.shell), r.out);
    for (const auto& q : queries) {
      char ask[512];
      std::snprintf(ask, sizeof ask, sh.ask.c_str(), q.words.c_str());
      write_file(dir / "ask", sh.setup + "source ./script." + sh.shell + "\n" + ask + "\n");
      const auto got = tool({sh.shell, sh.no_startup_files, "ask"});
      EXPECT_EQ(got.out, q.expected) << sh.shell << ": " << q.words << "\n" << got.err;
    }
  }
}

TEST_F(norvane_program, yaml_check_reports_each_error_at_its_position) {
  write_file(dir / "good.yml", "jobs:\n  build:\n    steps:\n      - name: compile\n");
  write_file(dir / "empty.yml", "");
  // The flow sequence opened on line 3 is never closed.
  write_file(dir / "bad.yml", "a: 1\nb: 2\nc: [1, 2\nd: 4\n");
  // A tab may not indent a block: the fault is at line 2, column 1.
  write_file(dir / "tab.yml", "a:\n\tb: 1\n");

  const auto ok = run({"yaml", "check", "good.yml", "empty.yml"});
  EXPECT_EQ(ok.code, 0) << ok.out << ok.err;
  EXPECT_EQ(ok.out, "");

  const auto r = run({"yaml", "check", "good.yml", "bad.yml", "tab.yml", "gone.yml"});
  EXPECT_EQ(r.code, 1);
  const auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;
  EXPECT_TRUE(lines[0].starts_with("bad.yml:")) << lines[0];
  EXPECT_TRUE(lines[1].starts_with("tab.yml:2:1: ")) << lines[1];
  EXPECT_EQ(r.err, "norvane: gone.yml: No such file or directory\n");
  // The position is the parser's own, moved from its "file:LINE:COL (OFFSETB): "
  // prefix into the path:line:column: form.
  std::vector<std::string> errors;
  norvane::yaml::read_yaml(read_file(dir / "bad.yml"), errors);
  ASSERT_EQ(errors.size(), 1u);
  unsigned line = 0;
  unsigned column = 0;
  int consumed = 0;
  ASSERT_EQ(std::sscanf(errors[0].c_str(), "file:%u:%u (%*uB): %n", &line, &column, &consumed), 2)
      << errors[0];
  EXPECT_GE(line, 3u);
  EXPECT_EQ(lines[0], "bad.yml:" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                          errors[0].substr(static_cast<std::size_t>(consumed)));
}

TEST_F(norvane_program, yaml_get_reads_scalars_at_dotted_paths) {
  write_file(dir / "ci.yml",
             "jobs:\n  build:\n    steps:\n      - name: compile\n      - name: \"test, all\"\n        "
             "retries: 3\n");
  EXPECT_EQ(run({"yaml", "get", "ci.yml", "jobs.build.steps.0.name"}).out, "compile\n");
  EXPECT_EQ(run({"yaml", "get", "ci.yml", "jobs.build.steps.1.name"}).out, "test, all\n");
  EXPECT_EQ(run({"yaml", "get", "ci.yml", "jobs.build.steps.1.retries"}).out, "3\n");

  const auto missing = run({"yaml", "get", "ci.yml", "jobs.build.steps.2.name"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.out, "");
  EXPECT_EQ(missing.err, "norvane: 'jobs.build.steps.2' does not exist in 'ci.yml'\n");

  // Maps and sequences print as compact JSON (merge keys resolved, quoted
  // text kept as text), or as block YAML with --yaml; no path is the root.
  write_file(
      dir / "c.yml",
      "base: &b {image: nginx, restart: always}\nweb:\n  <<: *b\n  restart: \"no\"\n  ports: [\"8080\", 443, "
      "1.5]\n  env: {A: ~, B: \"x\\ny\", C: true}\n  none: []\n");
  const std::vector<std::pair<std::vector<std::string>, std::string>> prints{
      {{"c.yml", "web.ports"}, "[\"8080\",443,1.5]\n"},
      {{"c.yml", "web.env"}, "{\"A\":null,\"B\":\"x\\ny\",\"C\":true}\n"},
      {{"c.yml", "web", "--yaml"},
       "image: nginx\nrestart: no\nports:\n  - \"8080\"\n  - 443\n  - 1.5\nenv:\n  A: null\n  B: \"x\\ny\"\n "
       " C: "
       "true\nnone: []\n"},
      {{"c.yml"},
       "{\"base\":{\"image\":\"nginx\",\"restart\":\"always\"},\"web\":{\"image\":\"nginx\",\"restart\":"
       "\"no\","
       "\"ports\":[\"8080\",443,1.5],\"env\":{\"A\":null,\"B\":\"x\\ny\",\"C\":true},\"none\":[]}}\n"},
  };
  for (const auto& [args, expected] : prints) {
    std::vector<std::string> call{"yaml", "get"};
    call.insert(call.end(), args.begin(), args.end());
    const auto r = run(call);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, expected) << args.back();
  }
  // What --yaml prints reads back to the same JSON.
  write_file(dir / "round.yml", run({"yaml", "get", "c.yml", "web", "--yaml"}).out);
  EXPECT_EQ(run({"yaml", "get", "round.yml"}).out, run({"yaml", "get", "c.yml", "web"}).out);
}

TEST_F(norvane_program, settings_persist_between_runs) {
  EXPECT_EQ(run({"settings", "set", "width", "640"}).code, 0);
  EXPECT_EQ(run({"settings", "set", "window", R"({"x":1,"y":2})"}).code, 0);
  EXPECT_EQ(run({"settings", "--file", "other.json", "set", "theme", "\"dark\""}).code, 0);

  EXPECT_EQ(run({"settings", "get", "width"}).out, "640\n");
  EXPECT_EQ(run({"settings", "list"}).out, "width=640\nwindow={\"x\":1,\"y\":2}\n");
  EXPECT_EQ(run({"settings", "list", "--file", "other.json"}).out, "theme=\"dark\"\n");
  const auto stored = nlohmann::json::parse(read_file(home / ".config/norvane.norvane/settings.json"));
  EXPECT_EQ(stored, nlohmann::json::parse(R"({"width":640,"window":{"x":1,"y":2}})"));

  EXPECT_EQ(run({"settings", "remove", "width"}).code, 0);
  const auto gone = run({"settings", "get", "width"});
  EXPECT_EQ(gone.code, 1);
  EXPECT_EQ(gone.err, "norvane: no setting 'width'\n");
  EXPECT_EQ(run({"settings", "remove", "width"}).code, 1);

  // Bad JSON is refused, and the library's error goes to the log file.
  const auto bad = run(
      {"--log-level", "error", "--log-file", (dir / "log.txt").string(), "settings", "set", "k", "{oops"});
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(bad.err, "norvane: '{oops' is not a JSON value\n");
  EXPECT_NE(read_file(dir / "log.txt").find("[error] "), std::string::npos);
  // Above the error level the same failure logs nothing.
  const auto quiet = run({"--log-level", "critical", "--log-file", (dir / "quiet.txt").string(), "settings",
                          "set", "k", "{oops"});
  EXPECT_EQ(quiet.code, 1);
  EXPECT_EQ(read_file(dir / "quiet.txt"), "");
  // A value that looks like an option follows "--".
  EXPECT_EQ(run({"settings", "set", "n", "--", "-3"}).code, 0);
  EXPECT_EQ(run({"settings", "get", "n"}).out, "-3\n");
  EXPECT_EQ(run({"settings", "remove", "n"}).code, 0);
  EXPECT_EQ(run({"settings", "list"}).out, "window={\"x\":1,\"y\":2}\n");
}

TEST_F(norvane_program, bad_usage_exits_with_2_and_one_line_on_stderr) {
  const std::vector<std::vector<std::string>> cases{
      {},
      {"frobnicate"},
      {"info", "--bogus"},
      {"info", "extra"},
      {"hash"},
      {"hash", "--algo", "md5", "x"},
      {"hash", "--json", "x"},
      {"uuid", "-n", "many"},
      {"uuid", "-n", "-1"},
      {"yaml"},
      {"yaml", "get", "a.yml", "path", "extra"},
      {"yaml", "check", "--yaml", "a.yml"},
      {"yaml", "lint", "x"},
      {"settings"},
      {"settings", "get"},
      {"settings", "set", "k"},
      {"settings", "drop", "k"},
      {"--log-level", "loud", "info"},
      {"hash", "--algo"},
      {"hash", "--quiet", "x"},
      {"completion"},
      {"completion", "tcsh"},
      {"help", "bogus"},
  };
  for (const auto& args : cases) {
    std::string joined;
    for (const auto& a : args) {
      joined += a + ' ';
    }
    const auto r = run(args);
    EXPECT_EQ(r.code, 2) << joined;
    EXPECT_EQ(r.out, "") << joined;
    EXPECT_TRUE(r.err.starts_with("norvane: ")) << joined << ": " << r.err;
    EXPECT_EQ(lines_of(r.err).size(), 1u) << joined << ": " << r.err;
  }
  const auto version = run({"info", "--version"});
  EXPECT_EQ(version.code, 0);
  EXPECT_TRUE(version.out.starts_with("norvane ")) << version.out;
}

TEST_F(norvane_program, uuid_prints_distinct_valid_identifiers) {
  const auto lines = lines_of(run({"uuid", "-n", "50"}).out);
  ASSERT_EQ(lines.size(), 50u);
  for (const auto& line : lines) {
    EXPECT_TRUE(norvane::validate_uuid_str(line)) << line;
  }
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), 50u);
  EXPECT_EQ(lines_of(run({"uuid"}).out).size(), 1u);
  EXPECT_EQ(run({"uuid", "--count=0"}).out, "");

  // Version 7: drawn in order, so the text sorts in the order printed.
  const auto ordered = lines_of(run({"uuid", "--v7", "-n", "200"}).out);
  ASSERT_EQ(ordered.size(), 200u);
  EXPECT_TRUE(std::is_sorted(ordered.begin(), ordered.end()));
  EXPECT_EQ(std::set<std::string>(ordered.begin(), ordered.end()).size(), 200u);
  for (const auto& line : ordered) {
    EXPECT_EQ(line[14], '7') << line;
  }
}

TEST_F(norvane_program, info_describes_the_host_and_the_program_locations) {
  const auto r = run({"info", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  const auto info = nlohmann::json::parse(r.out);
  EXPECT_FALSE(info["cpus"].empty());
  EXPECT_GE(info["logical_cores"].get<int>(), 1);
  EXPECT_GE(info["usable_cores"].get<int>(), 1);
  EXPECT_LE(info["usable_cores"].get<int>(), info["logical_cores"].get<int>());
  EXPECT_GT(info["memory_mib"].get<double>(), 0.0);
  EXPECT_LE(info["memory_limit_mib"].get<double>(), info["memory_mib"].get<double>());
  EXPECT_GT(info["memory_available_mib"].get<double>(), 0.0);
  EXPECT_FALSE(info["os"]["type"].get<std::string>().empty());
  const auto& at = info["locations"];
  EXPECT_EQ(at.size(), 10u);
  EXPECT_EQ(at["app_config"], (home / ".config/norvane.norvane").string());
  EXPECT_EQ(at["app_state"], (home / ".local/state/norvane.norvane").string());
  EXPECT_EQ(at["app_data"], (home / ".local/share/norvane.norvane").string());
  EXPECT_EQ(at["home"], home.path().string());
  EXPECT_EQ(fs::weakly_canonical(info["image"].get<std::string>()), fs::weakly_canonical(NORVANE_PROGRAM));

  const auto text = run({"info"});
  EXPECT_EQ(text.code, 0);
  for (const char* name : {"app_config: ", "org_config: ", "generic_data: ", "temp: ", "image: ", "os: "}) {
    EXPECT_NE(text.out.find(std::string("\n") + name), std::string::npos) << name;
  }

  // Pinned to one CPU, the program may use one core whatever the host has.
  const auto pinned = tool({"taskset", "-c", "0", NORVANE_PROGRAM, "info", "--json"});
  ASSERT_EQ(pinned.code, 0) << pinned.err;
  EXPECT_EQ(nlohmann::json::parse(pinned.out)["usable_cores"], 1);
}

}  // namespace
