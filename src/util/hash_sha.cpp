// SHA-1 and SHA-256 through OpenSSL's EVP digest interface, one-shot and
// incremental.
#include "util/hasher_pimpl.hpp"

#include <norvane/log.hpp>

#include <openssl/evp.h>

#include <cstdint>
#include <memory>

namespace norvane {
namespace {

struct digest_context_deleter {
  void operator()(EVP_MD_CTX* ctx) const noexcept { EVP_MD_CTX_free(ctx); }
};
using digest_context_ptr = std::unique_ptr<EVP_MD_CTX, digest_context_deleter>;

std::string report_failure(const char* message) {
  if (auto logger = get_norvane_logger()) {
    logger->log(log_level::error, "{}", message);
  }
  return {};
}

constexpr const char* sha1_failed = "The SHA1 algorithm failed!";
constexpr const char* sha256_failed = "The SHA256 algorithm failed!";

struct sha_pimpl : hasher_pimpl {
  sha_pimpl(const EVP_MD* algorithm_, const char* failure_, bool uppercase_)
      : algorithm(algorithm_), failure(failure_), uppercase(uppercase_) {
    start();
  }

  void start() {
    if (!context) {
      context.reset(EVP_MD_CTX_new());
    }
    healthy = context && EVP_DigestInit_ex(context.get(), algorithm, nullptr) == 1;
    size_hashed = 0;
  }

  void absorb(const void* data, std::size_t size) override {
    // EVP takes size_t and keeps a 128-bit bit count: no 4 GiB limit here.
    healthy = healthy && EVP_DigestUpdate(context.get(), data, size) == 1;
  }

  std::string finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    const bool done = healthy && EVP_DigestFinal_ex(context.get(), digest, &length) == 1;
    start();
    if (!done) {
      return report_failure(failure);
    }
    return details::digest_to_hex(digest, length, uppercase);
  }

  digest_context_ptr context;
  const EVP_MD* algorithm;
  const char* failure;
  bool uppercase;
  bool healthy = false;
};

}  // namespace

std::string hash_sha1(std::string_view data) {
  digest_context_ptr ctx(EVP_MD_CTX_new());
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  // The length is deliberately cut to 32 bits, as it always has been; large
  // inputs go through sha1_hasher.
  const auto size = static_cast<std::uint32_t>(data.size());
  if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha1(), nullptr) != 1 ||
      EVP_DigestUpdate(ctx.get(), data.data(), size) != 1 ||
      EVP_DigestFinal_ex(ctx.get(), digest, &length) != 1) {
    return report_failure(sha1_failed);
  }
  return details::digest_to_hex(digest, length, true);
}

std::string hash_sha256(std::string_view data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  const auto size = static_cast<std::uint32_t>(data.size());
  if (EVP_Digest(data.data(), size, digest, &length, EVP_sha256(), nullptr) != 1) {
    return report_failure(sha256_failed);
  }
  return details::digest_to_hex(digest, length, false);
}

sha1_hasher::sha1_hasher() : hasher(*new sha_pimpl(EVP_sha1(), sha1_failed, true)) {}
sha1_hasher::~sha1_hasher() = default;
std::string sha1_hasher::finish() { return static_cast<sha_pimpl&>(handle()).finish(); }

sha256_hasher::sha256_hasher() : hasher(*new sha_pimpl(EVP_sha256(), sha256_failed, false)) {}
sha256_hasher::~sha256_hasher() = default;
std::string sha256_hasher::finish() { return static_cast<sha_pimpl&>(handle()).finish(); }

}  // namespace norvane
