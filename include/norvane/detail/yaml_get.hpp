// The body of ryml_wrapper::get<T>, kept out of <norvane/yaml.hpp> so that
// the header reads as the contract. Included at the end of yaml.hpp only.
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <type_traits>

namespace norvane::yaml {

template <typename T>
std::optional<T> ryml_wrapper::get() const {
  if constexpr (std::is_same_v<T, bool>) {
    if (!is_boolean()) {
      return std::nullopt;
    }
    bool b = false;
    extract_primitive_impl(b);
    return b;
  } else if constexpr (std::is_integral_v<T>) {
    if (!is_number()) {
      return std::nullopt;
    }
    long long v = 0;
    extract_primitive_impl(v);
    if constexpr (std::is_unsigned_v<T>) {
      if (v < 0 || static_cast<unsigned long long>(v) > std::numeric_limits<T>::max()) {
        return std::nullopt;
      }
    } else {
      if (v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max()) {
        return std::nullopt;
      }
    }
    return static_cast<T>(v);
  } else if constexpr (std::is_floating_point_v<T>) {
    if (!is_number()) {
      return std::nullopt;
    }
    double v = 0;
    extract_primitive_impl(v);
    return static_cast<T>(v);
  } else if constexpr (std::is_same_v<T, std::string>) {
    if (!has_value()) {
      return std::nullopt;
    }
    std::string s;
    extract_primitive_impl(s);
    return s;
  } else {
    static_assert(std::is_same_v<T, ryml_wrapper>, "get<T>: T is bool, an arithmetic type or std::string");
    if (!is_valid()) {
      return std::nullopt;
    }
    return *this;
  }
}

}  // namespace norvane::yaml
