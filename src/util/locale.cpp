// Conversions between UTF-8 and the locale's encoding, which is UTF-8 on
// every platform the library is built for.
#include <norvane/strings.hpp>

std::string utf8_to_locale(const std::string& text) { return text; }

std::string locale_to_utf8(const std::string& text) { return text; }
