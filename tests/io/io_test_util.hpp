// Short names for the device state and open-mode bits the io tests combine.
#pragma once

#include <norvane/io.hpp>

namespace norvane::test_bits {

inline constexpr unsigned int bad = io_device::badbit;
inline constexpr unsigned int eof = io_device::eofbit;
inline constexpr unsigned int fail = io_device::failbit;
inline constexpr unsigned int app = io_device::app;
inline constexpr unsigned int ate = io_device::ate;
inline constexpr unsigned int binary = io_device::binary;
inline constexpr unsigned int in = io_device::in;
inline constexpr unsigned int out = io_device::out;
inline constexpr unsigned int trunc = io_device::trunc;

}  // namespace norvane::test_bits
