#include <norvane/hash.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

bool is_version_4(const norvane::uuid& id) {
  return (id.bytes()[6] & 0xf0) == 0x40 && (id.bytes()[8] & 0xc0) == 0x80;
}

TEST(validate_uuid_str, accepts_only_the_lower_case_36_character_form) {
  EXPECT_TRUE(norvane::validate_uuid_str("123e4567-e89b-42d3-a456-426614174000"));
  EXPECT_TRUE(norvane::validate_uuid_str("00000000-0000-0000-0000-000000000000"));
  EXPECT_TRUE(norvane::validate_uuid_str("ffffffff-ffff-ffff-ffff-ffffffffffff"));

  EXPECT_FALSE(norvane::validate_uuid_str(""));
  EXPECT_FALSE(norvane::validate_uuid_str("123E4567-E89B-42D3-A456-426614174000"));
  EXPECT_FALSE(norvane::validate_uuid_str("123e4567-e89b-42d3-a456-42661417400A"));
  EXPECT_FALSE(norvane::validate_uuid_str("{123e4567-e89b-42d3-a456-426614174000}"));
  EXPECT_FALSE(norvane::validate_uuid_str("urn:uuid:123e4567-e89b-42d3-a456-426614174000"));
  EXPECT_FALSE(norvane::validate_uuid_str("123e4567e89b42d3a456426614174000"));
  EXPECT_FALSE(norvane::validate_uuid_str("123e4567-e89b-42d3-a456-42661417400"));    // 35
  EXPECT_FALSE(norvane::validate_uuid_str("123e4567-e89b-42d3-a456-4266141740000"));  // 37
  EXPECT_FALSE(norvane::validate_uuid_str("123e4567-e89b-42d3-a456-42661417400g"));
  EXPECT_FALSE(norvane::validate_uuid_str("123e4567ee89b-42d3-a456-426614174000"));  // hyphen moved
  EXPECT_FALSE(norvane::validate_uuid_str("123e4567-e89b-42d3-a456-4266-4174000"));  // extra hyphen
  EXPECT_FALSE(norvane::validate_uuid_str(std::string_view("123e4567-e89b-42d3-a456-42661417400\0", 36)));
}

TEST(uuid, parses_bytes_in_text_order) {
  const norvane::uuid id("00112233-4455-6677-8899-aabbccddeeff");
  for (std::size_t i = 0; i < 16; ++i) {
    EXPECT_EQ(id.bytes()[i], i * 0x11) << i;
  }
  EXPECT_EQ(norvane::to_string(id), "00112233-4455-6677-8899-aabbccddeeff");
}

TEST(uuid, invalid_text_gives_the_null_identifier) {
  for (const char* text : {"", "not a uuid", "00112233-4455-6677-8899-AABBCCDDEEFF",
                           "{00112233-4455-6677-8899-aabbccddeeff}", "00112233-4455-6677-8899-aabbccddeef"}) {
    const norvane::uuid id{std::string_view(text)};
    EXPECT_TRUE(id == norvane::uuid_null) << text;
  }
  for (auto byte : norvane::uuid_null.bytes()) {
    EXPECT_EQ(byte, 0);
  }
  EXPECT_EQ(norvane::to_string(norvane::uuid_null), "00000000-0000-0000-0000-000000000000");
}

TEST(uuid, random_identifiers_are_version_4_and_round_trip) {
  std::set<std::string> seen;
  for (int i = 0; i < 2000; ++i) {
    const norvane::uuid id;
    ASSERT_TRUE(is_version_4(id));
    const std::string text = norvane::to_string(id);
    ASSERT_TRUE(norvane::validate_uuid_str(text)) << text;
    EXPECT_EQ(text[14], '4');
    EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << text;
    const norvane::uuid parsed(text);
    ASSERT_TRUE(parsed == id) << text;
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 2000u);
  EXPECT_FALSE(norvane::uuid() == norvane::uuid());
}

TEST(uuid, random_bits_cover_every_free_position) {
  // Over many identifiers every bit that the version and variant leave free
  // must take both values; a byte written twice or left zero would not.
  std::array<std::uint8_t, 16> ones{};
  std::array<std::uint8_t, 16> zeros{};
  for (int i = 0; i < 512; ++i) {
    const norvane::uuid id;
    for (std::size_t b = 0; b < 16; ++b) {
      ones[b] |= id.bytes()[b];
      zeros[b] |= static_cast<std::uint8_t>(~id.bytes()[b]);
    }
  }
  for (std::size_t b = 0; b < 16; ++b) {
    const std::uint8_t fixed = b == 6 ? 0xf0 : b == 8 ? 0xc0 : 0x00;
    EXPECT_EQ(ones[b] & ~fixed & 0xff, ~fixed & 0xff) << b;
    EXPECT_EQ(zeros[b] & ~fixed & 0xff, ~fixed & 0xff) << b;
  }
}

}  // namespace
