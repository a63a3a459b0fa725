// The application object and its process-wide instance.
#include <norvane/application.hpp>
#include <norvane/application_pimpl.hpp>
#include <norvane/log.hpp>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace norvane {

namespace {

// The macOS launcher adds "-psn_<serial>" to the command line of bundled
// applications; it is dropped wherever it stands so that portable code
// never sees it.
bool is_process_serial_number(const char* argument) { return std::strncmp(argument, "-psn_", 5) == 0; }

const std::string& empty_text() {
  static const std::string empty;
  return empty;
}

}  // namespace

application_core_pimpl::application_core_pimpl(application_core* owner_, int& argc, char** argv)
    : owner(owner_) {
  for (int i = 0; i < argc; ++i) {
    // A null entry has no text to keep; skipping it is the only safe reading.
    if (argv[i] == nullptr || is_process_serial_number(argv[i])) {
      continue;
    }
    arguments.emplace_back(argv[i]);
  }
  if (arguments.empty()) {
    return;
  }
  std::error_code ec;
  auto canonical = std::filesystem::canonical(arguments[0], ec);
  if (ec) {
    get_norvane_logger()->log(log_level::error,
                              "Impossible to find the canonical path for the argument #0 {}: {}",
                              arguments[0], ec.message());
    return;
  }
  arguments[0] = canonical.string();
}

application_core_pimpl::~application_core_pimpl() = default;

application_core* application_core::self = nullptr;

application_core::application_core(int argc, char** argv)
    : impl_(new application_core_pimpl(this, argc, argv)) {
  self = impl_->owner;
}

application_core::application_core(application_core_pimpl& impl) : impl_(&impl) { self = impl_->owner; }

application_core::~application_core() { self = nullptr; }

application_core* application_core::instance() noexcept { return self; }

std::string application_core::platform() noexcept { return os() + "-" + arch(); }

std::string application_core::os() { return "linux"; }

std::string application_core::arch() { return NORVANE_TARGET_ARCH; }

const std::string& application_core::organization_name() const noexcept {
  return self != nullptr ? self->impl_->organization_name : empty_text();
}

void application_core::set_organization_name(const std::string& name) noexcept {
  if (self == nullptr) {
    std::abort();
  }
  self->impl_->organization_name = name;
}

const std::string& application_core::organization_domain() const noexcept {
  return self != nullptr ? self->impl_->organization_domain : empty_text();
}

void application_core::set_organization_domain(const std::string& domain) noexcept {
  if (self == nullptr) {
    std::abort();
  }
  self->impl_->organization_domain = domain;
}

const std::string& application_core::application_name() const noexcept {
  if (self == nullptr) {
    return empty_text();
  }
  auto& impl = *self->impl_;
  if (impl.application_name.empty() && !impl.arguments.empty()) {
    impl.application_name = std::filesystem::path(impl.arguments[0]).stem().string();
  }
  return impl.application_name;
}

void application_core::set_application_name(const std::string& name) noexcept {
  if (self != nullptr) {
    self->impl_->application_name = name;
  }
}

const std::string& application_core::application_version() const noexcept {
  return self != nullptr ? self->impl_->application_version : empty_text();
}

void application_core::set_application_version(const std::string& version) noexcept {
  if (self != nullptr) {
    self->impl_->application_version = version;
  }
}

std::string application_core::application_dir_path() const noexcept {
  if (impl_->arguments.empty()) {
    return {};
  }
  return std::filesystem::path(impl_->arguments[0]).parent_path().string();
}

const std::vector<std::string>& application_core::arguments() const noexcept { return impl_->arguments; }

void application_core::exit() noexcept { impl_->exit_flag.store(true, std::memory_order_seq_cst); }

void application_core::reset_exit() noexcept { impl_->exit_flag.store(false, std::memory_order_seq_cst); }

bool application_core::should_exit() const noexcept {
  return impl_->exit_flag.load(std::memory_order_seq_cst);
}

void application_core::restart() noexcept {}

}  // namespace norvane
