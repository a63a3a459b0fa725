// Identifiers: the text form, parsing, and random version 4 generation.
#include <norvane/hash.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

TEST(Uuid, OnlyTheLowerCase36CharacterFormParses) {
  using namespace std::string_view_literals;
  for (const auto& [text, valid] : {std::pair{"00112233-4455-6677-8899-aabbccddeeff"sv, true},
                                    {"ffffffff-ffff-ffff-ffff-ffffffffffff", true},
                                    {"00112233-4455-6677-8899-AABBCCDDEEFF", false},
                                    {"{00112233-4455-6677-8899-aabbccddeeff}", false},
                                    {"00112233445566778899aabbccddeeff", false},
                                    {"00112233-4455-6677-8899-aabbccddeef", false},
                                    {"00112233-4455-6677-8899-aabbccddeeff0", false},
                                    {"00112233-4455-6677-8899-aabbccddeefg", false},
                                    {"001122334-455-6677-8899-aabbccddeeff", false},
                                    {"00112233-4455-6677-8899-aabbccddeef\0"sv, false}}) {
    EXPECT_EQ(norvane::validate_uuid_str(text), valid) << text;
    const norvane::uuid id{text};
    EXPECT_EQ(norvane::to_string(id), valid ? text : "00000000-0000-0000-0000-000000000000") << text;
  }
  const norvane::uuid id("00112233-4455-6677-8899-aabbccddeeff");
  for (std::size_t i = 0; i < 16; ++i) {
    EXPECT_EQ(id.bytes()[i], i * 0x11) << i;
  }
}

TEST(Uuid, RandomIdentifiersAreVersion4WithEveryFreeBitRandom) {
  // Every bit that version and variant leave free must take both values; a
  // byte written twice or left zero would not.
  std::array<std::uint8_t, 16> ones{}, zeros{};
  std::set<std::string> seen;
  for (int i = 0; i < 2000; ++i) {
    const norvane::uuid id;
    const std::string text = norvane::to_string(id);
    ASSERT_TRUE(norvane::validate_uuid_str(text)) << text;
    ASSERT_TRUE(text[14] == '4' && std::string("89ab").find(text[19]) != std::string::npos) << text;
    ASSERT_TRUE(norvane::uuid(text) == id) << text;
    seen.insert(text);
    for (std::size_t b = 0; b < 16; ++b) {
      ones[b] |= id.bytes()[b];
      zeros[b] |= static_cast<std::uint8_t>(~id.bytes()[b]);
    }
  }
  EXPECT_EQ(seen.size(), 2000u);
  for (std::size_t b = 0; b < 16; ++b) {
    const int free_bits = b == 6 ? 0x0f : b == 8 ? 0x3f : 0xff;
    EXPECT_EQ(ones[b] & free_bits, free_bits) << b;
    EXPECT_EQ(zeros[b] & free_bits, free_bits) << b;
  }
}

}  // namespace
