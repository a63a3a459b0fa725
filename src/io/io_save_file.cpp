// io_save_file: the device interface over details::save_file, reporting each
// failure once through the library logger.
#include "io/io_save_file_pimpl.hpp"

#include <norvane/log.hpp>

#include <algorithm>

namespace norvane {
namespace {

io_save_file_pimpl& record(io_device_pimpl& pimpl) { return static_cast<io_save_file_pimpl&>(pimpl); }

void log_failure(const io_save_file_pimpl& r, const std::error_code& ec) {
  get_norvane_logger()->log(log_level::error, "Cannot save \"{}\" ({}): {}.", r.target.string(),
                            r.file.step(), ec.message());
}

}  // namespace

io_save_file::io_save_file() : io_device(*new io_save_file_pimpl) {}

io_save_file::~io_save_file() = default;

void io_save_file::open(const std::filesystem::path& target, unsigned int mode) {
  if (!verify_open_mode(mode)) {
    return;
  }
  auto& r = record(pimpl());
  set_name(target.c_str());
  set_open_mode(mode);
  r.target = target;
  r.position = 0;
  r.size = 0;
  // Only writing makes sense: the target is replaced, never read or extended.
  if ((mode & ~(trunc | binary)) != out) {
    get_norvane_logger()->log(log_level::error, "Cannot save \"{}\": a save file opens with mode out only.",
                              target.string());
    set_state(failbit);
    return;
  }
  if (const auto ec = r.file.open(target)) {
    log_failure(r, ec);
    set_state(failbit);
    return;
  }
  clear(0);
}

bool io_save_file::commit() {
  auto& r = record(pimpl());
  // A failure has been reported when it happened; its save is not completed.
  if (has_failure()) {
    r.file.discard();
    return false;
  }
  if (!r.file.is_open()) {
    set_state(failbit);
    return false;
  }
  if (const auto ec = r.file.commit()) {
    log_failure(r, ec);
    set_state(badbit);
    return false;
  }
  return true;
}

void io_save_file::cancel() { record(pimpl()).file.discard(); }

bool io_save_file::is_open() const { return record(pimpl()).file.is_open(); }

void io_save_file::close() {
  if (!is_open()) {
    set_state(failbit);
    return;
  }
  cancel();
}

long io_save_file::peek(char*, long) const { return 0; }

void io_save_file::read(char*, long count) {
  if (count != 0) {
    set_state(eofbit | failbit);
  }
}

void io_save_file::write(const char* buffer, long count) {
  auto& r = record(pimpl());
  if (!r.file.is_open() || count < 0) {
    set_state(failbit);
    return;
  }
  if (has_failure()) {
    return;
  }
  if (const auto ec = r.file.write(buffer, count, r.position)) {
    log_failure(r, ec);
    set_state(badbit);
    return;
  }
  r.position += count;
  r.size = std::max(r.size, r.position);
}

void io_save_file::seek(long long offset, std::ios_base::seekdir whence) {
  if (has_failure()) {
    return;
  }
  auto& r = record(pimpl());
  long long target = -1;
  if (whence == std::ios_base::beg) {
    target = offset;
  } else if (whence == std::ios_base::cur) {
    target = r.position + offset;
  } else if (whence == std::ios_base::end) {
    target = r.size + offset;
  }
  if (target < 0) {
    set_state(failbit);
    return;
  }
  r.position = target;
}

long long io_save_file::tell() const { return has_failure() ? -1 : record(pimpl()).position; }

char* io_save_file::data() const { return nullptr; }

long long io_save_file::size() const { return record(pimpl()).size; }

bool io_save_file::is_sequential() const { return false; }

}  // namespace norvane
