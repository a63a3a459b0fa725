// Digests (hex text, SHA through OpenSSL, XXH3 across its length classes) and identifiers.
// The XXH3 values come from @node-rs/xxhash 1.7.8, an independent Rust
// implementation, over the bytes (i * 131 + 17) mod 256.
#include <norvane/hash.hpp>
#include <norvane/hash_xxh3.hpp>

#include "support/fault_support.hpp"
#include "support/log_capture.hpp"

#include <openssl/crypto.h>
#include <openssl/provider.h>

#include <gtest/gtest.h>

namespace {

TEST(Hash, HexShaAndXxh3DigestsInOnePieceOrMany) {
  std::string out = "stale";
  for (const auto& [bytes, upper, hex] : {std::tuple{std::string("\x0f\xa0", 2), false, "0fa0"},
                                          {"\x9a\xbc\xde\xf0", true, "9ABCDEF0"},
                                          {"", true, ""}}) {
    EXPECT_EQ((norvane::string_to_hex(bytes, out, upper), out), hex);
  }
  EXPECT_EQ(norvane::hash_sha1("abc"), "A9993E364706816ABA3E25717850C26C9CD0D89D");
  EXPECT_EQ(norvane::hash_sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  // Size, XXH3-64 and XXH3-128 (low, high), on both sides of the border
  // between the inlined short path and the dispatched one.
  const std::tuple<std::size_t, std::uint64_t, norvane::hash_128_t> rows[] = {
      {0, 0x2d06800538d394c2, {0x6001c324468d497f, 0x99aa06d3014798d8}},
      {240, 0x44089a144aade02d, {0xe1a4f0922856b524, 0xb39403b41f31eeaf}},
      {241, 0xed93572e52acac83, {0xed93572e52acac83, 0x06229596e1de710a}},
      {1048583, 0x8fd81ca83352a404, {0x8fd81ca83352a404, 0x84bbd5874adef1d8}}};
  norvane::sha1_hasher sha1;
  norvane::sha256_hasher sha256;
  norvane::xxh3_64_hasher h64;
  norvane::xxh3_128_hasher h128;
  for (const auto& [size, xxh64, xxh128] : rows) {
    std::string input(size, '\0');
    for (std::size_t i = 0; i < size; ++i) input[i] = static_cast<char>((i * 131 + 17) & 0xff);
    EXPECT_EQ(norvane::hash_xxh64(input), xxh64) << size;
    EXPECT_EQ(norvane::hash_xxh128(input), xxh128) << size;
    EXPECT_EQ(norvane::XXH128_to_hash_128_t(XXH3_128bits(input.data(), input.size())), xxh128) << size;
    // Piece sizes that straddle XXH3's internal stripes and blocks; finish() starts over.
    for (std::size_t at = 0, piece = 1; at < input.size(); at += piece, piece = piece * 3 + 1) {
      for (norvane::hasher* h : std::initializer_list<norvane::hasher*>{&sha1, &sha256, &h64, &h128}) {
        h->update(std::string_view(input).substr(at, piece));
      }
    }
    EXPECT_EQ(sha1.size_hashed(), size);
    EXPECT_TRUE(sha1.finish() == norvane::hash_sha1(input) && sha256.finish() == norvane::hash_sha256(input));
    EXPECT_TRUE(h64.finish() == xxh64 && h128.finish() == xxh128 && h64.size_hashed() == 0) << size;
  }
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
    // A braced list runs its calls in order, and the log lines are compared.
    std::string report;
    for (const auto& digest :
         {norvane::hash_sha1("abc"), norvane::hash_sha256("abc"), sha1.finish(), sha256.finish()}) {
      report += digest;
    }
    for (const auto& entry : log.entries()) report += entry.level + ": " + entry.message + "\n";
    return report;
  });
  ASSERT_TRUE(child.exited_cleanly()) << child.describe();
  EXPECT_EQ(child.report,
            "error: The SHA1 algorithm failed!\nerror: The SHA256 algorithm failed!\n"
            "error: The SHA1 algorithm failed!\nerror: The SHA256 algorithm failed!\n");
}

TEST(Uuid, OnlyTheLowerCase36CharacterFormParses) {
  using namespace std::string_view_literals;
  for (const auto& [text, valid] : {std::pair{"00112233-4455-6677-8899-aabbccddeeff"sv, true},
                                    {"00112233-4455-6677-8899-AABBCCDDEEFF", false},
                                    {"{00112233-4455-6677-8899-aabbccddeeff}", false},
                                    {"00112233-4455-6677-8899-aabbccddeef", false},
                                    {"00112233-4455-6677-8899-aabbccddeeff0", false},
                                    {"00112233-4455-6677-8899-aabbccddeefg", false},
                                    {"001122334-455-6677-8899-aabbccddeeff", false},
                                    {"00112233-4455-6677-8899-aabbccddeef\0"sv, false}}) {
    EXPECT_EQ(norvane::validate_uuid_str(text), valid) << text;
    EXPECT_EQ(norvane::to_string(norvane::uuid{text}), valid ? text : "00000000-0000-0000-0000-000000000000");
  }
  std::array<std::uint8_t, 16> bytes{};
  for (std::size_t i = 0; i < 16; ++i) bytes[i] = static_cast<std::uint8_t>(i * 0x11);
  EXPECT_EQ(norvane::uuid("00112233-4455-6677-8899-aabbccddeeff").bytes(), bytes);
}

TEST(Uuid, RandomIdentifiersAreVersion4WithEveryFreeBitRandom) {
  // Every bit that version and variant leave free must take both values.
  std::array<std::uint8_t, 16> ones{}, zeros{};
  for (int i = 0; i < 2000; ++i) {
    const norvane::uuid id;
    const std::string text = norvane::to_string(id);
    ASSERT_TRUE(text[14] == '4' && std::string("89ab").find(text[19]) != std::string::npos) << text;
    ASSERT_TRUE(norvane::validate_uuid_str(text) && norvane::uuid(text) == id) << text;
    for (std::size_t b = 0; b < 16; ++b) {
      ones[b] |= id.bytes()[b];
      zeros[b] |= static_cast<std::uint8_t>(~id.bytes()[b]);
    }
  }
  for (std::size_t b = 0; b < 16; ++b) {
    const int free_bits = b == 6 ? 0x0f : b == 8 ? 0x3f : 0xff;
    EXPECT_EQ(ones[b] & zeros[b] & free_bits, free_bits) << b;
  }
}

}  // namespace
