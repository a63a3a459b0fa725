// The record behind io_buffer: the device state plus its memory backing.
#pragma once

#include "io/memory_raw_buffer.hpp"

#include <norvane/io.hpp>

namespace norvane {

struct io_buffer_pimpl : io_device_pimpl {
  io_buffer_pimpl() : buffer(new memory_raw_buffer) {}
  ~io_buffer_pimpl() override { delete buffer; }

  memory_raw_buffer* buffer;
};

}  // namespace norvane
