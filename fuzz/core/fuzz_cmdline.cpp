// Untrusted command lines: each line of the input is one argument. Parsing
// must return true or false, never crash or throw, and every declared
// option must stay readable afterwards.
#include <norvane/cmdline.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

norvane::cmdline_parser& parser() {
  static norvane::cmdline_parser* p = [] {
    auto* made = new norvane::cmdline_parser("fuzz", "Fuzzed command lines");
    made->add_option("v", "verbose", "a flag", false);
    made->add_option("q", "quiet", "a flag on by default", true);
    made->add_option("c", "count", "an integer", 3);
    made->add_option("r", "ratio", "a real", 0.5);
    made->add_option("m", "mode", "a text", "fast");
    made->add_option("", "output", "a text without short name", "");
    made->add_option("files");
    return made;
  }();
  return *p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> arguments;
  std::size_t start = 0;
  while (start <= input.size()) {
    const auto end = input.find('\n', start);
    const auto piece =
        input.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    arguments.emplace_back(piece);
    if (end == std::string_view::npos) {
      break;
    }
    start = end + 1;
  }
  auto& p = parser();
  const bool parsed = p.parse(arguments);
  // After a successful parse flags, integers and reals always have a text
  // (texts may be given empty); after a failed one nothing is left.
  for (const char* name : {"verbose", "quiet", "count", "ratio"}) {
    if (parsed == p.value(name).empty()) {
      __builtin_trap();
    }
  }
  for (const char* name : {"mode", "output", "files"}) {
    if (!parsed && (p.count(name) != 0 || !p.value(name).empty())) {
      __builtin_trap();
    }
  }
  return 0;
}
