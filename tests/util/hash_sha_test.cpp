// Expected digests were computed with coreutils' sha1sum and sha256sum.
#include <norvane/hash.hpp>
#include <norvane/log.hpp>

#include "hash_test_util.hpp"
#include "support/test_support.hpp"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using norvane::test::fips_448_bits;
using norvane::test::fips_abc;
using norvane::test::fips_million_a;

TEST(hash_sha1, fips_180_messages_in_upper_case) {
  EXPECT_EQ(norvane::hash_sha1(""), "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
  EXPECT_EQ(norvane::hash_sha1(fips_abc), "A9993E364706816ABA3E25717850C26C9CD0D89D");
  EXPECT_EQ(norvane::hash_sha1(fips_448_bits), "84983E441C3BD26EBAAE4AA1F95129E5E54670F1");
  EXPECT_EQ(norvane::hash_sha1(fips_million_a), "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F");
}

TEST(hash_sha256, fips_180_messages_in_lower_case) {
  EXPECT_EQ(norvane::hash_sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(norvane::hash_sha256(fips_abc),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(norvane::hash_sha256(fips_448_bits),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(norvane::hash_sha256(fips_million_a),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(sha_hashers, match_the_one_shot_digests_in_any_pieces) {
  norvane::sha1_hasher sha1;
  norvane::sha256_hasher sha256;
  for (std::size_t i = 0; i < fips_448_bits.size(); i += 5) {
    sha1.update(std::string_view(fips_448_bits).substr(i, 5));
    sha256.update(fips_448_bits.data() + i, std::min<std::size_t>(5, fips_448_bits.size() - i));
  }
  EXPECT_EQ(sha1.size_hashed(), fips_448_bits.size());
  EXPECT_EQ(sha1.finish(), "84983E441C3BD26EBAAE4AA1F95129E5E54670F1");
  EXPECT_EQ(sha256.finish(), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");

  // finish() starts over: the next digest is of what follows only.
  EXPECT_EQ(sha1.size_hashed(), 0u);
  EXPECT_EQ(sha1.finish(), "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
  for (int i = 0; i < 1000; ++i) {
    sha256.update(std::string_view(fips_million_a).substr(0, 1000));
  }
  sha256.update("");
  EXPECT_EQ(sha256.finish(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  sha1.update(fips_abc);
  EXPECT_EQ(sha1.finish(), norvane::hash_sha1(fips_abc));
}

// Runs only as the child of failure_is_logged_and_gives_an_empty_digest, in
// a process whose OpenSSL configuration offers no digest at all.
TEST(sha_failure_child, DISABLED_reports) {
  const char* log_path = std::getenv("NORVANE_TEST_SHA_LOG");
  if (log_path == nullptr) {
    GTEST_SKIP() << "runs only as a child process";
  }
  auto stream = std::make_shared<norvane::log_stream>(
      "norvane", std::make_shared<norvane::log_sink_file>(log_path, true));
  stream->set_level(norvane::log_level::trace);
  set_norvane_logger(stream);
  EXPECT_EQ(norvane::hash_sha1(fips_abc), "");
  EXPECT_EQ(norvane::hash_sha256(fips_abc), "");
  norvane::sha1_hasher sha1;
  sha1.update(fips_abc);
  EXPECT_EQ(sha1.finish(), "");
  norvane::sha256_hasher sha256;
  EXPECT_EQ(sha256.finish(), "");
  set_norvane_logger(nullptr);
}

TEST(hash_sha, failure_is_logged_and_gives_an_empty_digest) {
  norvane::test::temp_dir dir;
  norvane::test::write_file(dir / "openssl.cnf",
                            "openssl_conf = init\n[init]\nproviders = providers\n"
                            "[providers]\nnull = null\n[null]\nactivate = 1\n");
  // The child is this very test program, found before the shell runs.
  const auto self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string command =
      "OPENSSL_CONF='" + (dir / "openssl.cnf").string() + "' NORVANE_TEST_SHA_LOG='" +
      (dir / "log.txt").string() + "' '" + self.string() +
      "' --gtest_also_run_disabled_tests --gtest_filter=sha_failure_child.DISABLED_reports >/dev/null 2>&1";
  const int rc = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(rc));
  EXPECT_EQ(WEXITSTATUS(rc), 0);
  const std::string log = norvane::test::read_file(dir / "log.txt");
  std::size_t sha1_lines = 0;
  std::size_t sha256_lines = 0;
  for (std::size_t at = 0;
       (at = log.find("[norvane] [error] The SHA1 algorithm failed!\n", at)) != std::string::npos; ++at) {
    ++sha1_lines;
  }
  for (std::size_t at = 0;
       (at = log.find("[norvane] [error] The SHA256 algorithm failed!\n", at)) != std::string::npos; ++at) {
    ++sha256_lines;
  }
  EXPECT_EQ(sha1_lines, 2u) << log;
  EXPECT_EQ(sha256_lines, 2u) << log;
}

}  // namespace
