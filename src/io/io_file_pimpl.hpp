// The record behind io_file: the device state plus its mapped-file backing.
#pragma once

#include "io/memory_mapped_buffer.hpp"

#include <norvane/io.hpp>

#include <memory>

namespace norvane {

struct io_file_pimpl : io_device_pimpl {
  std::unique_ptr<memory_mapped_buffer> file = std::make_unique<memory_mapped_buffer>();
};

}  // namespace norvane
