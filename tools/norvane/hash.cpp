// norvane hash: digests of files in the layout of sha256sum.
#include "command.hpp"

#include <norvane/dispatcher.hpp>
#include <norvane/hash.hpp>
#include <norvane/io.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>

namespace norvane_tool {
namespace {

constexpr std::size_t block_size = std::size_t{1} << 20;
constexpr long long progress_threshold = 256LL << 20;

// One digest kind behind one interface, so reading does not care which.
struct digest {
  std::function<void(const char*, std::size_t)> update;
  std::function<std::string()> finish;
};

std::string hex64(std::uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016" PRIx64, value);
  return text;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

template <typename Hasher, typename Text>
digest make_digest(Text text) {
  auto hasher = std::make_shared<Hasher>();
  return {[hasher](const char* data, std::size_t size) { hasher->update(data, size); },
          [hasher, text] { return text(hasher->finish()); }};
}

digest digest_named(const std::string& algo) {
  if (algo == "sha256") {
    return make_digest<norvane::sha256_hasher>([](std::string d) { return lower(std::move(d)); });
  }
  if (algo == "sha1") {
    return make_digest<norvane::sha1_hasher>([](std::string d) { return lower(std::move(d)); });
  }
  if (algo == "xxh64") {
    return make_digest<norvane::xxh3_64_hasher>(hex64);
  }
  if (algo == "xxh128") {
    // High half first, as xxhsum writes the canonical form.
    return make_digest<norvane::xxh3_128_hasher>(
        [](norvane::hash_128_t h) { return hex64(h.high64) + hex64(h.low64); });
  }
  throw usage_error("unknown algorithm '" + algo + "' (sha1, sha256, xxh64 or xxh128)");
}

struct progress {
  long long done;
  long long total;
};

// Redraws the bar when the queued progress is delivered; the reading loop
// only queues, so drawing stays out of the hashing path.
void draw(progress& p) {
  constexpr int width = 40;
  const int filled = static_cast<int>(p.done * width / p.total);
  std::fprintf(stderr, "\r[%.*s%*s] %3lld%%", filled, "########################################",
               width - filled, "", p.done * 100 / p.total);
  if (p.done == p.total) {
    std::fputc('\n', stderr);
  }
}

// Pipes, terminals and other files that cannot be mapped are read in turn.
bool hash_stream(int fd, digest& d) {
  std::unique_ptr<char[]> block(new char[block_size]);
  for (;;) {
    const auto n = ::read(fd, block.get(), block_size);
    if (n == 0) {
      return true;
    }
    if (n < 0 && errno != EINTR) {
      return false;
    }
    if (n > 0) {
      d.update(block.get(), static_cast<std::size_t>(n));
    }
  }
}

bool hash_unmappable(const std::string& path, digest& d) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  const bool read = hash_stream(fd, d);
  ::close(fd);
  return read;
}

// Hashes straight from the mapping, a block at a time; only sizes above
// 4 GiB need the incremental hasher, but blocks also pace the progress bar.
bool hash_file(const std::string& path, digest& d) {
  std::error_code error;
  const auto kind = std::filesystem::status(path, error).type();
  if (kind == std::filesystem::file_type::fifo || kind == std::filesystem::file_type::character) {
    return hash_unmappable(path, d);
  }
  norvane::io_file file;
  file.open(path, norvane::io_device::in);
  if (!file.is_open()) {
    return false;
  }
  const long long size = file.size();
  const bool show = size >= progress_threshold && ::isatty(STDERR_FILENO) != 0;
  norvane::custom_dispatcher<> events;
  events.sink<progress>().connect<&draw>();
  const char* data = file.data();
  for (long long done = 0; done < size;) {
    const auto n = static_cast<std::size_t>(std::min<long long>(size - done, block_size));
    d.update(data + done, n);
    done += static_cast<long long>(n);
    if (show && (done % (16 * static_cast<long long>(block_size)) == 0 || done == size)) {
      events.enqueue<progress>(done, size);
      events.update();
    }
  }
  file.close();
  return true;
}

}  // namespace

int run_hash(const invocation& call) {
  allow_only(call, "hash", {"algo"});
  auto d = digest_named(call.value("algo"));
  if (call.words.empty()) {
    throw usage_error("hash needs at least one FILE ('-' for standard input)");
  }
  int result = exit_ok;
  for (const auto& path : call.words) {
    const bool read = path == "-" ? hash_stream(STDIN_FILENO, d) : hash_file(path, d);
    const auto text = d.finish();  // also starts the hasher over after a failure
    if (!read) {
      report("cannot read '" + path + "'");
      result = exit_failure;
      continue;
    }
    std::cout << text << "  " << path << '\n';
  }
  return result;
}

}  // namespace norvane_tool
