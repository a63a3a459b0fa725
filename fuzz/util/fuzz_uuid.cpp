// UUID text from untrusted input: a parsed identifier is null exactly when
// the text fails the check (or names the null identifier itself), and a
// valid text survives a round trip unchanged.
#include <norvane/hash.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto exact = std::make_unique<char[]>(size);
  std::copy(data, data + size, exact.get());
  const std::string_view text(exact.get(), size);

  const bool valid = norvane::validate_uuid_str(text);
  const norvane::uuid id(text);
  const bool is_null = id == norvane::uuid_null;
  if (!valid && !is_null) {
    std::abort();
  }
  if (valid) {
    if (norvane::to_string(id) != text) {
      std::abort();
    }
    if (is_null != (text == "00000000-0000-0000-0000-000000000000")) {
      std::abort();
    }
  }
  return 0;
}
