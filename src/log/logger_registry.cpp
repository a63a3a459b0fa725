// The process-wide registry of named loggers and its defaults.
#include <norvane/log.hpp>

namespace norvane {
namespace details {

logger_manager::logger_manager() : default_sink_(std::make_shared<log_sink_null_threaded>()) {}

logger_manager::~logger_manager() = default;

logger_manager& logger_manager::instance() {
  static logger_manager manager;
  return manager;
}

void logger_manager::install_registry(logger_registry* registry) {
  if (registry == registry_ || (registry == nullptr && registry_ == &own_registry_)) {
    return;
  }
  logger_registry* target = registry != nullptr ? registry : &own_registry_;
  // Entries of the map being left win; that map keeps its entries.
  for (const auto& [name, stream] : *registry_) {
    (*target)[name] = stream;
  }
  registry_ = target;
}

void logger_manager::set_default_sink(std::shared_ptr<log_sink> sink) {
  if (!sink) {
    sink = std::make_shared<log_sink_null_threaded>();
  }
  default_sink_ = std::move(sink);
}

std::shared_ptr<log_sink> logger_manager::default_sink() const { return default_sink_; }

void logger_manager::set_default_level(log_level level) { default_level_ = level; }

log_level logger_manager::default_level() const { return default_level_; }

std::shared_ptr<log_stream> logger_manager::register_logger(std::shared_ptr<log_stream> stream, bool lock) {
  std::string key = stream->name();
  std::unique_lock guard(mutex_, std::defer_lock);
  if (lock) {
    guard.lock();
  }
  auto& slot = (*registry_)[std::move(key)];
  slot = std::move(stream);
  return slot;
}

void logger_manager::unregister_logger(std::string_view name, bool lock) {
  std::unique_lock guard(mutex_, std::defer_lock);
  if (lock) {
    guard.lock();
  }
  registry_->erase(std::string(name));
}

std::shared_ptr<log_stream> logger_manager::get_logger(std::string_view name, bool lock) {
  std::unique_lock guard(mutex_, std::defer_lock);
  if (lock) {
    guard.lock();
  }
  std::string key(name);
  if (auto found = registry_->find(key); found != registry_->end()) {
    return found->second;
  }
  auto stream = make_default_logger(name);
  registry_->emplace(std::move(key), stream);
  return stream;
}

}  // namespace details

void install_logger_registry(logger_registry* registry) {
  details::logger_manager::instance().install_registry(registry);
}

void install_default_log_sink(std::shared_ptr<log_sink> sink) {
  details::logger_manager::instance().set_default_sink(std::move(sink));
}

void set_default_log_level(log_level level) { details::logger_manager::instance().set_default_level(level); }

std::shared_ptr<log_stream> register_logger(std::shared_ptr<log_stream> stream, bool lock) {
  return details::logger_manager::instance().register_logger(std::move(stream), lock);
}

void unregister_logger(std::string_view name, bool lock) {
  details::logger_manager::instance().unregister_logger(name, lock);
}

std::shared_ptr<log_stream> get_logger(std::string_view name, bool lock) {
  return details::logger_manager::instance().get_logger(name, lock);
}

std::shared_ptr<log_stream> make_default_logger(std::string_view name) {
  auto& manager = details::logger_manager::instance();
  auto stream = std::make_shared<log_stream>(std::string(name), manager.default_sink());
  stream->set_level(manager.default_level());
  return stream;
}

}  // namespace norvane
