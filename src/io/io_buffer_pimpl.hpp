// The record behind io_buffer: the device state plus its memory backing.
#pragma once

#include "io/memory_raw_buffer.hpp"

#include <norvane/io.hpp>

#include <memory>

namespace norvane {

struct io_buffer_pimpl : io_device_pimpl {
  std::unique_ptr<memory_raw_buffer> buffer = std::make_unique<memory_raw_buffer>();
};

}  // namespace norvane
