// Escape decoding from untrusted text: never reads outside the input, and
// decoding in place agrees exactly with decoding into another string.
#include <norvane/strings.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size copy, so that a read past the view is an AddressSanitizer report.
  const auto exact = std::make_unique<char[]>(size);
  std::copy(data, data + size, exact.get());
  const std::string_view in(exact.get(), size);

  std::string out = "earlier content";
  std::string error;
  const bool ok = norvane::unescape(&out, in, &error);

  std::string in_place(in);
  std::string in_place_error;
  const bool ok_in_place = norvane::unescape(&in_place, in_place, &in_place_error);

  if (ok != ok_in_place) {
    std::abort();
  }
  if (ok) {
    if (out != in_place || out.size() > in.size()) {
      std::abort();
    }
    if (in.find('\\') == std::string_view::npos && out != in) {
      std::abort();
    }
  } else if (error.empty() || error != in_place_error) {
    std::abort();
  }
  std::string ignored;
  if (norvane::unescape(&ignored, in, nullptr) != ok) {
    std::abort();
  }
  return 0;
}
