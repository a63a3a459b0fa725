// The record behind io_file: the device state plus its mapped-file backing.
#pragma once

#include "io/memory_mapped_buffer.hpp"

#include <norvane/io.hpp>

namespace norvane {

struct io_file_pimpl : io_device_pimpl {
  io_file_pimpl() : file(new memory_mapped_buffer) {}
  ~io_file_pimpl() override { delete file; }

  memory_mapped_buffer* file;
};

}  // namespace norvane
