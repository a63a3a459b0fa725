// Digests of small texts at once, of large inputs in pieces, and UUIDs.
#include <norvane/hash.hpp>

#include <cstdio>
#include <string>

int main() {
  std::printf("sha256(abc) = %s\n", norvane::hash_sha256("abc").c_str());
  std::printf("sha1(abc)   = %s\n", norvane::hash_sha1("abc").c_str());  // upper case
  std::printf("xxh3(abc)   = %016llx\n", static_cast<unsigned long long>(norvane::hash_xxh64("abc")));

  // The hashers take any amount of input; finish() gives what the one-shot
  // function gives for the whole of it.
  norvane::sha256_hasher hasher;
  const std::string piece(1 << 16, 'x');
  for (int i = 0; i < 16; ++i) {
    hasher.update(piece);
  }
  std::printf("1 MiB hashed: %llu bytes\n", static_cast<unsigned long long>(hasher.size_hashed()));
  const std::string digest = hasher.finish();
  if (digest != norvane::hash_sha256(std::string(1 << 20, 'x'))) {
    return 1;
  }

  const norvane::uuid id;
  const std::string text = norvane::to_string(id);
  std::printf("uuid %s, parses back: %s\n", text.c_str(), norvane::uuid(text) == id ? "yes" : "no");
  return 0;
}
