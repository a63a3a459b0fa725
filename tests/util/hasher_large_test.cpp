// Hashers over more than 4 GiB, without 4 GiB of memory or disk: a private
// anonymous mapping reads as zeros and costs no memory until written.
#include <norvane/hash.hpp>

#include <xxhash.h>

#include <gtest/gtest.h>

#include <sys/mman.h>

namespace {

constexpr std::size_t large_size = (std::size_t{1} << 32) + 65537;

class HasherLarge : public ::testing::Test {
protected:
  void SetUp() override {
    mapping_ = ::mmap(nullptr, large_size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(mapping_, MAP_FAILED);
    zeros = std::string_view(static_cast<const char*>(mapping_), large_size);
  }
  void TearDown() override { ::munmap(mapping_, large_size); }
  void* mapping_ = MAP_FAILED;
  std::string_view zeros;
};

// Expected: `head -c 4295032833 /dev/zero | sha256sum` (and sha1sum).
TEST_F(HasherLarge, ShaDigestsPast4GiB) {
  // One update with the whole length: nothing may cut it to 32 bits.
  norvane::sha256_hasher sha256;
  sha256.update(zeros);
  EXPECT_EQ(sha256.size_hashed(), large_size);
  EXPECT_EQ(sha256.finish(), "05ee371c4c085f8f5447c8018cd0acb7200f44bd68cc3aeeab79c0a2da0eab67");
  // Many pieces, so the running count passes 2^32.
  norvane::sha1_hasher sha1;
  for (std::size_t at = 0; at < large_size; at += std::size_t{64} << 20)
    sha1.update(zeros.substr(at, 64 << 20));
  EXPECT_EQ(sha1.size_hashed(), large_size);
  EXPECT_EQ(sha1.finish(), "971FFEC4B8CB738FBFCB560A56BF2FA0B07CFBD7");
  // The one-shot functions keep their 32-bit length: only the bytes past 4 GiB count.
  EXPECT_EQ(norvane::hash_sha256(zeros), norvane::hash_sha256(zeros.substr(0, 65537)));
}

TEST_F(HasherLarge, Xxh3Past4GiBMatchesTheLibrarysOwnCalls) {
  // A repeated pattern, so that a piece dropped or repeated changes the result.
  std::string block(1024 * 1024 + 3, '\0');
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 131 + 17);
  const std::size_t rounds = (std::size_t{1} << 32) / block.size() + 2;
  XXH3_state_t *raw64 = XXH3_createState(), *raw128 = XXH3_createState();
  XXH3_64bits_reset(raw64);
  XXH3_128bits_reset(raw128);
  norvane::xxh3_64_hasher ours64;
  norvane::xxh3_128_hasher ours128;
  for (std::size_t i = 0; i < rounds; ++i) {
    XXH3_64bits_update(raw64, block.data(), block.size());
    XXH3_128bits_update(raw128, block.data(), block.size());
    ours64.update(block);
    ours128.update(block);
  }
  EXPECT_EQ(ours64.size_hashed(), rounds * block.size());
  EXPECT_EQ(ours64.finish(), XXH3_64bits_digest(raw64));
  const XXH128_hash_t expected = XXH3_128bits_digest(raw128);
  EXPECT_EQ(ours128.finish(), (norvane::hash_128_t{expected.low64, expected.high64}));
  XXH3_freeState(raw64);
  XXH3_freeState(raw128);
  ours64.update(zeros);
  EXPECT_EQ(ours64.finish(), XXH3_64bits(zeros.data(), zeros.size()));
  EXPECT_EQ(norvane::hash_xxh64(zeros), XXH3_64bits(zeros.data(), zeros.size()));
}

}  // namespace
