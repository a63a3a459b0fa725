// The library's own logger, "norvane", made and registered at first use.
#include <norvane/log.hpp>

norvane_logger::norvane_logger()
    : logger(norvane::register_logger(norvane::make_default_logger("norvane"), true)) {}

norvane_logger& norvane_logger::instance() {
  static norvane_logger holder;
  return holder;
}

std::shared_ptr<norvane::log_stream> get_norvane_logger() { return norvane_logger::instance().logger; }

void set_norvane_logger(std::shared_ptr<norvane::log_stream> stream) {
  norvane_logger::instance().logger = std::move(stream);
}
