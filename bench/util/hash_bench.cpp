// The library's hashes against the raw OpenSSL and xxHash calls on the same
// buffers.
#include <norvane/hash.hpp>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#if defined(__x86_64__)
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

#include <array>
#include <cstdint>
#include <string>

namespace {

std::string buffer(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>(i * 131 + 17);
  }
  return bytes;
}

const std::string one_mib = buffer(1 << 20);
const std::string sixty_four = buffer(64);
const std::string piece_64_kib = buffer(64 << 10);
constexpr std::size_t pieces_per_gib = (std::size_t{1} << 30) / (64 << 10);

// One call on the whole input per iteration, the same loop for every pair.
template <const std::string* input, auto hash>
void one_shot(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(hash(*input));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input->size()));
}

std::string sha1_norvane(const std::string& bytes) { return norvane::hash_sha1(bytes); }
std::string sha256_norvane(const std::string& bytes) { return norvane::hash_sha256(bytes); }
std::uint64_t xxh64_norvane(const std::string& bytes) { return norvane::hash_xxh64(bytes); }
norvane::hash_128_t xxh128_norvane(const std::string& bytes) { return norvane::hash_xxh128(bytes); }
XXH64_hash_t xxh64_raw(const std::string& bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }
XXH128_hash_t xxh128_raw(const std::string& bytes) { return XXH3_128bits(bytes.data(), bytes.size()); }

std::array<unsigned char, EVP_MAX_MD_SIZE> sha256_raw(const std::string& bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr);
  return digest;
}

void sha1_raw(benchmark::State& state) {
  for (auto _ : state) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    EVP_DigestInit_ex(ctx, EVP_sha1(), nullptr);
    EVP_DigestUpdate(ctx, one_mib.data(), one_mib.size());
    EVP_DigestFinal_ex(ctx, digest, &length);
    EVP_MD_CTX_free(ctx);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * one_mib.size()));
}

void sha256_hasher_norvane(benchmark::State& state) {
  norvane::sha256_hasher hasher;
  for (auto _ : state) {
    for (std::size_t i = 0; i < pieces_per_gib; ++i) {
      hasher.update(piece_64_kib);
    }
    benchmark::DoNotOptimize(hasher.finish());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() << 30));
}

void sha256_hasher_raw(benchmark::State& state) {
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  for (auto _ : state) {
    EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr);
    for (std::size_t i = 0; i < pieces_per_gib; ++i) {
      EVP_DigestUpdate(ctx, piece_64_kib.data(), piece_64_kib.size());
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(ctx, digest, &length);
    benchmark::DoNotOptimize(digest);
  }
  EVP_MD_CTX_free(ctx);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() << 30));
}

}  // namespace

BENCHMARK(sha1_raw)->Name("sha1_1MiB/raw");
BENCHMARK(one_shot<&one_mib, sha1_norvane>)->Name("sha1_1MiB/norvane");
BENCHMARK(one_shot<&one_mib, sha256_raw>)->Name("sha256_1MiB/raw");
BENCHMARK(one_shot<&one_mib, sha256_norvane>)->Name("sha256_1MiB/norvane");
// Each iteration hashes 1 GiB. An iteration count would be appended to the
// case name and take the pair out of the ratio table.
BENCHMARK(sha256_hasher_raw)->Name("sha256_hasher_1GiB_in_64KiB/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(sha256_hasher_norvane)->Name("sha256_hasher_1GiB_in_64KiB/norvane")->Unit(benchmark::kMillisecond);
BENCHMARK(one_shot<&one_mib, xxh64_raw>)->Name("xxh64_1MiB/raw");
BENCHMARK(one_shot<&one_mib, xxh64_norvane>)->Name("xxh64_1MiB/norvane");
BENCHMARK(one_shot<&sixty_four, xxh64_raw>)->Name("xxh64_64B/raw");
BENCHMARK(one_shot<&sixty_four, xxh64_norvane>)->Name("xxh64_64B/norvane");
BENCHMARK(one_shot<&one_mib, xxh128_raw>)->Name("xxh128_1MiB/raw");
BENCHMARK(one_shot<&one_mib, xxh128_norvane>)->Name("xxh128_1MiB/norvane");
BENCHMARK(one_shot<&sixty_four, xxh128_raw>)->Name("xxh128_64B/raw");
BENCHMARK(one_shot<&sixty_four, xxh128_norvane>)->Name("xxh128_64B/norvane");
