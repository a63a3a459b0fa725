// Expected values were computed with @node-rs/xxhash 1.7.8 (npm), whose XXH3
// is an independent Rust implementation, over norvane::test::pattern(n).
#include <norvane/hash.hpp>
#include <norvane/hash_xxh3.hpp>

#include "hash_test_util.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

struct vector_case {
  std::size_t size;
  std::uint64_t xxh64;
  norvane::hash_128_t xxh128;  // low, high
};

// One size in each of XXH3's length classes and at their borders.
const vector_case vectors[] = {
    {0, 0x2d06800538d394c2, {0x6001c324468d497f, 0x99aa06d3014798d8}},
    {1, 0xf319fe2bdfcdfebd, {0xf319fe2bdfcdfebd, 0xf46d8182f5a4994a}},
    {3, 0xa107bb65b715c89b, {0xa107bb65b715c89b, 0xd3d72a54a914da93}},
    {4, 0x509f0567aa8a3123, {0xb7a8c115066c18e7, 0xc867fd251db3e6d7}},
    {8, 0xb1433dc39b7f946e, {0x60bc8bccebcb0734, 0xc1dcf76c2349c002}},
    {9, 0xfe2542440b36ddc7, {0xf11ccf925dc0bf79, 0x02d0cd6fb1a9d265}},
    {16, 0x715189ff3dcdcff6, {0x9803f5a245db3129, 0x086a52d17f54b78c}},
    {17, 0x7d33163b8af0179c, {0xc2f249861431c09e, 0x4721ae433384feed}},
    {128, 0xee847f7fcef4ddbc, {0x37906c780c01150d, 0xd25fb3a54bc43c6e}},
    {129, 0x7e3e7b750239d4fc, {0x3dc26c2565608a13, 0xce245f502a54b831}},
    {240, 0x44089a144aade02d, {0xe1a4f0922856b524, 0xb39403b41f31eeaf}},
    {241, 0xed93572e52acac83, {0xed93572e52acac83, 0x06229596e1de710a}},
    {1024, 0xf0c5763fadfacd25, {0xf0c5763fadfacd25, 0x73e0806b4c7d6bbc}},
    {4096, 0xb6ea541381e0f6f9, {0xb6ea541381e0f6f9, 0x93b2780c62e00847}},
    {1048583, 0x8fd81ca83352a404, {0x8fd81ca83352a404, 0x84bbd5874adef1d8}},
};

TEST(hash_xxh3, known_values_across_length_classes) {
  for (const auto& v : vectors) {
    const std::string input = norvane::test::pattern(v.size);
    EXPECT_EQ(norvane::hash_xxh64(input), v.xxh64) << v.size;
    const norvane::hash_128_t h = norvane::hash_xxh128(input);
    EXPECT_EQ(h.low64, v.xxh128.low64) << v.size;
    EXPECT_EQ(h.high64, v.xxh128.high64) << v.size;
    EXPECT_EQ(norvane::XXH128_to_hash_128_t(XXH3_128bits(input.data(), input.size())), v.xxh128) << v.size;
  }
  // Text, for a reader checking by hand: xxhsum -H3 / -H2 of "abc".
  EXPECT_EQ(norvane::hash_xxh64("abc"), 0x78af5f94892f3950u);
  EXPECT_EQ(norvane::hash_xxh128("abc"), (norvane::hash_128_t{0x78af5f94892f3950, 0x06b05ab6733a6185}));
}

TEST(xxh3_hashers, match_the_one_shot_hashes_in_any_pieces) {
  norvane::xxh3_64_hasher h64;
  norvane::xxh3_128_hasher h128;
  for (const auto& v : vectors) {
    const std::string input = norvane::test::pattern(v.size);
    // Piece sizes that straddle XXH3's internal 256-byte stripes and blocks.
    std::size_t piece = 1;
    for (std::size_t at = 0; at < input.size(); at += piece, piece = piece * 3 + 1) {
      const auto part = std::string_view(input).substr(at, piece);
      h64.update(part);
      h128.update(part);
    }
    EXPECT_EQ(h64.size_hashed(), v.size);
    EXPECT_EQ(h64.finish(), v.xxh64) << v.size;
    EXPECT_EQ(h128.finish(), v.xxh128) << v.size;
    EXPECT_EQ(h128.size_hashed(), 0u);
  }
}

}  // namespace
