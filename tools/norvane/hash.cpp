// norvane hash: digests of files in the layout of sha256sum, several files
// at once, and the verification of digest lists (--check).
#include "command.hpp"

#include <norvane/hash.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <sstream>
#include <thread>

namespace norvane_tool {
namespace {

// Plain read(2) into one reused buffer: on this machine's virtualised page
// tables, mapping a cached file costs four times the copy, while the copy
// keeps the resident set at the buffer whatever the file size. 256 KiB reads
// cost the least here (32 KiB: +25%, 1 MiB: +5%), and the kernel copies into
// a page-aligned buffer about a tenth faster than into one at malloc's
// 16-byte offset.
constexpr std::size_t read_size = std::size_t{256} << 10;
constexpr std::align_val_t buffer_alignment{4096};
constexpr long long progress_threshold = 256LL << 20;
constexpr long long progress_step = 16LL << 20;

struct algorithm {
  std::string_view name;
  // The tag of BSD-style lines ("XXH3 (path) = digest").
  std::string_view tag;
  std::size_t hex_size;
};

constexpr algorithm algorithms[] = {
    {"sha1", "SHA1", 40},
    {"sha256", "SHA256", 64},
    {"xxh64", "XXH3", 16},
    {"xxh128", "XXH128", 32},
};

const algorithm& algorithm_named(std::string_view name) {
  for (const auto& a : algorithms) {
    if (a.name == name) {
      return a;
    }
  }
  throw usage_error("unknown algorithm '" + std::string(name) + "' (sha1, sha256, xxh64 or xxh128)");
}

std::string hex64(std::uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016" PRIx64, value);
  return text;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// One hasher of the chosen algorithm, its text always in lower case.
class digest {
public:
  explicit digest(const algorithm& a) : name_(a.name) {
    if (name_ == "sha1") {
      hasher_ = std::make_unique<norvane::sha1_hasher>();
    } else if (name_ == "sha256") {
      hasher_ = std::make_unique<norvane::sha256_hasher>();
    } else if (name_ == "xxh64") {
      hasher_ = std::make_unique<norvane::xxh3_64_hasher>();
    } else {
      hasher_ = std::make_unique<norvane::xxh3_128_hasher>();
    }
  }

  void update(const char* data, std::size_t size) { hasher_->update(data, size); }

  // Also starts the hasher over, after a failed read too.
  std::string finish() {
    if (name_ == "sha1") {
      return lower(static_cast<norvane::sha1_hasher&>(*hasher_).finish());
    }
    if (name_ == "sha256") {
      return static_cast<norvane::sha256_hasher&>(*hasher_).finish();
    }
    if (name_ == "xxh64") {
      return hex64(static_cast<norvane::xxh3_64_hasher&>(*hasher_).finish());
    }
    // High half first, as xxhsum writes the canonical form.
    const auto h = static_cast<norvane::xxh3_128_hasher&>(*hasher_).finish();
    return hex64(h.high64) + hex64(h.low64);
  }

private:
  std::string_view name_;
  std::unique_ptr<norvane::hasher> hasher_;
};

struct outcome {
  std::string digest;
  int error = 0;  // errno of the failed open or read
};

void draw_progress(long long done, long long total) {
  constexpr int width = 40;
  const int filled = static_cast<int>(done * width / total);
  std::fprintf(stderr, "\r[%.*s%*s] %3lld%%", filled, "########################################",
               width - filled, "", done * 100 / total);
  if (done == total) {
    std::fputc('\n', stderr);
  }
}

// Each worker owns one reader: its buffer and hasher are reused file after file.
class reader {
public:
  explicit reader(const algorithm& a)
      : digest_(a), buffer_(static_cast<char*>(::operator new[](read_size, buffer_alignment))) {}

  outcome hash(const std::string& path, bool progress) {
    const bool is_stdin = path == "-";
    const int fd = is_stdin ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      return {{}, errno};
    }
    long long total = 0;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
      ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
      total = info.st_size;
    }
    const bool show = progress && total >= progress_threshold && ::isatty(STDERR_FILENO) != 0;
    const int error = read_all(fd, show ? total : 0);
    if (!is_stdin) {
      ::close(fd);
    }
    auto text = digest_.finish();
    return error == 0 ? outcome{std::move(text), 0} : outcome{{}, error};
  }

private:
  // Pipes, terminals and character devices are read the same way as files.
  int read_all(int fd, long long progress_total) {
    long long done = 0;
    for (;;) {
      const auto n = ::read(fd, buffer_.get(), read_size);
      if (n == 0) {
        return 0;
      }
      if (n < 0) {
        if (errno == EINTR) {
          continue;
        }
        return errno;
      }
      digest_.update(buffer_.get(), static_cast<std::size_t>(n));
      const long long before = done;
      done += n;
      if (progress_total > 0 && (done / progress_step != before / progress_step || done == progress_total)) {
        draw_progress(std::min(done, progress_total), progress_total);
      }
    }
  }

  struct aligned_delete {
    void operator()(char* buffer) const noexcept { ::operator delete[](buffer, buffer_alignment); }
  };

  digest digest_;
  std::unique_ptr<char[], aligned_delete> buffer_;
};

// Hashes every path on all cores and hands the outcomes to `report_one` in
// the order of `paths`, on the calling thread. Standard input ("-") is read
// by the calling thread, in order, so repeated "-" behave as in sha256sum.
void hash_in_order(const std::vector<std::string>& paths, const algorithm& algo,
                   const std::function<void(std::size_t, const outcome&)>& report_one) {
  std::vector<std::optional<outcome>> results(paths.size());
  std::mutex lock;
  std::condition_variable ready;
  const auto store = [&](std::size_t i, outcome o) {
    const std::lock_guard hold(lock);
    results[i] = std::move(o);
    ready.notify_all();
  };
  const bool progress = paths.size() == 1;
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    reader r(algo);
    for (std::size_t i; (i = next++) < paths.size();) {
      if (paths[i] != "-") {
        store(i, r.hash(paths[i], progress));
      }
    }
  };
  const auto files = static_cast<std::size_t>(
      std::count_if(paths.begin(), paths.end(), [](const auto& p) { return p != "-"; }));
  const auto workers = std::min<std::size_t>(std::max(1u, std::thread::hardware_concurrency()), files);
  std::vector<std::jthread> pool;
  if (workers == 1 && files == paths.size()) {
    work();  // one file: a thread of its own would only add its start-up
  } else {
    for (std::size_t w = 0; w < workers; ++w) {
      pool.emplace_back(work);
    }
  }
  if (files < paths.size()) {
    reader r(algo);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      if (paths[i] == "-") {
        store(i, r.hash(paths[i], progress));
      }
    }
  }
  for (std::size_t i = 0; i < paths.size(); ++i) {
    std::unique_lock hold(lock);
    ready.wait(hold, [&] { return results[i].has_value(); });
    const auto result = std::move(*results[i]);
    hold.unlock();
    report_one(i, result);
  }
}

bool needs_escape(std::string_view name) { return name.find_first_of("\\\n") != std::string_view::npos; }

// sha256sum's escaping: a backslash before the line, then "\\" and "\n"
// for the two characters that would break the line apart.
std::string escaped(std::string_view name) {
  std::string text;
  for (const char c : name) {
    text += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : std::string(1, c);
  }
  return text;
}

std::optional<std::string> unescaped(std::string_view name) {
  std::string text;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] != '\\') {
      text += name[i];
      continue;
    }
    if (++i == name.size() || (name[i] != '\\' && name[i] != 'n')) {
      return std::nullopt;
    }
    text += name[i] == 'n' ? '\n' : '\\';
  }
  return text;
}

std::string reason(const std::string& path, int error) { return path + ": " + std::strerror(error); }

int hash_files(const std::vector<std::string>& paths, const algorithm& algo) {
  int result = exit_ok;
  hash_in_order(paths, algo, [&](std::size_t i, const outcome& o) {
    if (o.error != 0) {
      std::cout.flush();
      report(reason(paths[i], o.error));
      result = exit_failure;
      return;
    }
    if (needs_escape(paths[i])) {
      std::cout << '\\' << o.digest << "  " << escaped(paths[i]) << '\n';
    } else {
      std::cout << o.digest << "  " << paths[i] << '\n';
    }
  });
  return result;
}

struct listed {
  std::string path;
  std::string expected;
  const algorithm* algo;
};

bool is_hex(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

// One line of a list: "digest  path", "digest *path" (the binary mark of
// sha256sum), or "TAG (path) = digest"; a leading backslash marks an
// escaped path. Empty for a line of another shape.
std::optional<listed> parse_line(std::string_view line, const algorithm& fallback) {
  const bool escaped_name = line.starts_with('\\');
  if (escaped_name) {
    line.remove_prefix(1);
  }
  std::optional<listed> entry;
  const auto tag_end = line.find(" (");
  const auto name_end = line.rfind(") = ");
  const auto space = line.find(' ');
  if (tag_end != std::string_view::npos && name_end != std::string_view::npos && name_end > tag_end &&
      tag_end == space) {
    const auto tag = line.substr(0, tag_end);
    for (const auto& a : algorithms) {
      if (a.tag == tag) {
        entry = listed{std::string(line.substr(tag_end + 2, name_end - tag_end - 2)),
                       std::string(line.substr(name_end + 4)), &a};
      }
    }
  } else if (space != std::string_view::npos &&
             (line.substr(space, 2) == "  " || line.substr(space, 2) == " *")) {
    entry = listed{std::string(line.substr(space + 2)), std::string(line.substr(0, space)), &fallback};
  }
  if (!entry || entry->path.empty() || !is_hex(entry->expected) ||
      entry->expected.size() != entry->algo->hex_size) {
    return std::nullopt;
  }
  if (escaped_name) {
    auto name = unescaped(entry->path);
    if (!name) {
      return std::nullopt;
    }
    entry->path = std::move(*name);
  }
  entry->expected = lower(std::move(entry->expected));
  return entry;
}

std::optional<std::string> read_list(const std::string& path, int& error) {
  if (path == "-") {
    std::ostringstream text;
    text << std::cin.rdbuf();
    return text.str();
  }
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = errno;
    return std::nullopt;
  }
  std::string text;
  char block[65536];
  for (;;) {
    const auto n = ::read(fd, block, sizeof block);
    if (n > 0) {
      text.append(block, static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      error = n == 0 ? 0 : errno;
      break;
    }
  }
  ::close(fd);
  return error == 0 ? std::optional(std::move(text)) : std::nullopt;
}

std::string counted(std::size_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

struct check_mode {
  bool quiet;
  bool status;
};

// Verifies one list the way sha256sum --check does, summary included.
bool check_list(const std::string& list, const algorithm& fallback, check_mode mode) {
  int error = 0;
  const auto text = read_list(list, error);
  const std::string shown = list == "-" ? "standard input" : list;
  if (!text) {
    report(reason(list, error));
    return false;
  }
  std::vector<listed> entries;
  std::size_t malformed = 0;
  std::istringstream lines(*text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.starts_with('#')) {
      continue;
    }
    if (auto entry = parse_line(line, fallback)) {
      entries.push_back(std::move(*entry));
    } else {
      ++malformed;
    }
  }
  if (entries.empty()) {
    report(shown + ": no properly formatted checksum lines found");
    return false;
  }
  std::size_t unreadable = 0;
  std::size_t mismatched = 0;
  // Lines of one list may name different algorithms: group them by it,
  // then report in list order.
  std::vector<std::optional<outcome>> outcomes(entries.size());
  for (const auto& a : algorithms) {
    std::vector<std::string> paths;
    std::vector<std::size_t> at;
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].algo == &a) {
        paths.push_back(entries[i].path);
        at.push_back(i);
      }
    }
    if (!paths.empty()) {
      hash_in_order(paths, a, [&](std::size_t i, const outcome& o) { outcomes[at[i]] = o; });
    }
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& entry = entries[i];
    const auto& o = *outcomes[i];
    const char* verdict = "OK";
    if (o.error != 0) {
      std::cout.flush();
      report(reason(entry.path, o.error));
      verdict = "FAILED open or read";
      ++unreadable;
    } else if (o.digest != entry.expected) {
      verdict = "FAILED";
      ++mismatched;
    } else if (mode.quiet) {
      continue;
    }
    if (!mode.status) {
      // sha256sum escapes a name in its verdict only when it holds a newline.
      const bool escape = entry.path.find('\n') != std::string::npos;
      std::cout << (escape ? "\\" + escaped(entry.path) : entry.path) << ": " << verdict << '\n';
    }
  }
  std::cout.flush();
  if (!mode.status) {
    if (malformed > 0) {
      report("WARNING: " + counted(malformed, "line is", "lines are") + " improperly formatted");
    }
    if (unreadable > 0) {
      report("WARNING: " + counted(unreadable, "listed file", "listed files") + " could not be read");
    }
    if (mismatched > 0) {
      report("WARNING: " + counted(mismatched, "computed checksum", "computed checksums") + " did NOT match");
    }
  }
  return unreadable == 0 && mismatched == 0;
}

}  // namespace

int run_hash(const invocation& call) {
  const auto& algo = algorithm_named(call.value("algo"));
  const bool check = call.given("check");
  if (!check && (call.given("quiet") || call.given("status"))) {
    throw usage_error("--quiet and --status apply only with --check");
  }
  if (call.words.empty()) {
    throw usage_error(check ? "hash --check needs at least one LIST ('-' for standard input)"
                            : "hash needs at least one FILE ('-' for standard input)");
  }
  if (!check) {
    return hash_files(call.words, algo);
  }
  const check_mode mode{call.given("quiet"), call.given("status")};
  bool all_good = true;
  for (const auto& list : call.words) {
    all_good = check_list(list, algo, mode) && all_good;
  }
  return all_good ? exit_ok : exit_failure;
}

}  // namespace norvane_tool
