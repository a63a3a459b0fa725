// Digests: hex text, SHA through OpenSSL, and XXH3 across its length classes.
// The XXH3 values come from @node-rs/xxhash 1.7.8, an independent Rust
// implementation, over norvane::test::pattern(n).
#include <norvane/hash.hpp>
#include <norvane/hash_xxh3.hpp>

#include "hash_test_util.hpp"
#include "support/fault_support.hpp"
#include "support/log_capture.hpp"

#include <openssl/crypto.h>
#include <openssl/provider.h>

#include <gtest/gtest.h>

#include <string>

namespace {

const char* const sha1_abc = "A9993E364706816ABA3E25717850C26C9CD0D89D";
const char* const sha256_abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(Hash, HexAndShaDigests) {
  std::string out = "stale";
  for (const auto& [bytes, upper, hex] : {std::tuple{std::string("\x0f\xa0", 2), false, "0fa0"},
                                          {"\x12\x34\x56\x78\x9a\xbc\xde\xf0", true, "123456789ABCDEF0"},
                                          {"", true, ""}}) {
    norvane::string_to_hex(bytes, out, upper);
    EXPECT_EQ(out, hex);
  }
  EXPECT_EQ(norvane::hash_sha1("abc"), sha1_abc);
  EXPECT_EQ(norvane::hash_sha256("abc"), sha256_abc);

  // The hashers give the one-shot digest in any pieces, and finish() starts over.
  const std::string text = norvane::test::pattern(1000);
  norvane::sha1_hasher sha1;
  norvane::sha256_hasher sha256;
  for (std::size_t i = 0; i < text.size(); i += 7) {
    sha1.update(std::string_view(text).substr(i, 7));
    sha256.update(text.data() + i, std::min<std::size_t>(7, text.size() - i));
  }
  EXPECT_EQ(sha1.size_hashed(), text.size());
  EXPECT_EQ(sha1.finish(), norvane::hash_sha1(text));
  EXPECT_EQ(sha256.finish(), norvane::hash_sha256(text));
  EXPECT_EQ(sha1.size_hashed(), 0u);
  sha1.update("abc");
  EXPECT_EQ(sha1.finish(), sha1_abc);
  EXPECT_EQ(sha256.finish(), norvane::hash_sha256(""));
}

TEST(Hash, ShaFailureIsLoggedAndGivesAnEmptyDigest) {
  const auto child = norvane::test::run_in_child([] {
    // A default library context without any digest, for this process only.
    OSSL_LIB_CTX* empty = OSSL_LIB_CTX_new();
    OSSL_PROVIDER_load(empty, "null");
    OSSL_LIB_CTX_set0_default(empty);
    norvane::test::log_capture log;
    norvane::sha1_hasher sha1;
    norvane::sha256_hasher sha256;
    sha1.update("abc");
    std::string report = norvane::hash_sha1("abc");
    report += norvane::hash_sha256("abc");
    report += sha1.finish();
    report += sha256.finish();
    for (const auto& entry : log.entries()) {
      report += entry.level + ": " + entry.message + "\n";
    }
    return report;
  });
  ASSERT_TRUE(child.exited_cleanly()) << child.describe();
  EXPECT_EQ(child.report,
            "error: The SHA1 algorithm failed!\nerror: The SHA256 algorithm failed!\n"
            "error: The SHA1 algorithm failed!\nerror: The SHA256 algorithm failed!\n");
}

TEST(Hash, Xxh3KnownValuesInOnePieceOrMany) {
  struct row {
    std::size_t size;
    std::uint64_t xxh64;
    norvane::hash_128_t xxh128;  // low, high
  };
  // Both sides of the border between the inlined short path and the dispatched one.
  const row rows[] = {
      {0, 0x2d06800538d394c2, {0x6001c324468d497f, 0x99aa06d3014798d8}},
      {17, 0x7d33163b8af0179c, {0xc2f249861431c09e, 0x4721ae433384feed}},
      {240, 0x44089a144aade02d, {0xe1a4f0922856b524, 0xb39403b41f31eeaf}},
      {241, 0xed93572e52acac83, {0xed93572e52acac83, 0x06229596e1de710a}},
      {1048583, 0x8fd81ca83352a404, {0x8fd81ca83352a404, 0x84bbd5874adef1d8}},
  };
  norvane::xxh3_64_hasher h64;
  norvane::xxh3_128_hasher h128;
  for (const row& r : rows) {
    const std::string input = norvane::test::pattern(r.size);
    EXPECT_EQ(norvane::hash_xxh64(input), r.xxh64) << r.size;
    EXPECT_EQ(norvane::hash_xxh128(input), r.xxh128) << r.size;
    EXPECT_EQ(norvane::XXH128_to_hash_128_t(XXH3_128bits(input.data(), input.size())), r.xxh128) << r.size;
    // Piece sizes that straddle XXH3's internal stripes and blocks.
    for (std::size_t at = 0, piece = 1; at < input.size(); at += piece, piece = piece * 3 + 1) {
      h64.update(std::string_view(input).substr(at, piece));
      h128.update(std::string_view(input).substr(at, piece));
    }
    EXPECT_EQ(h64.size_hashed(), r.size);
    EXPECT_EQ(h64.finish(), r.xxh64) << r.size;
    EXPECT_EQ(h128.finish(), r.xxh128) << r.size;
  }
}

}  // namespace
