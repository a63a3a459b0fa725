// The status value and its private record.
#include <norvane/status.hpp>

#include <utility>

namespace norvane {

struct status::pimpl {
  std::int32_t value = 0;
  // Null reads as std::generic_category(), so a default status needs no lookup.
  const std::error_category* category = nullptr;
  std::vector<std::string> contextual_messages;
};

status::status() : impl_(new pimpl) {}

status status::ok() { return status(); }

status::status(int value, const std::error_category& category, std::vector<std::string>&& contextual_messages)
    : impl_(new pimpl{value, &category, std::move(contextual_messages)}) {}

status::status(const status& other) : impl_(new pimpl(*other.impl_)) {}

status::status(status&& other) noexcept : impl_(std::move(other.impl_)) {}

status& status::operator=(const status& other) {
  if (this != &other) {
    impl_->value = other.impl_->value;
    impl_->category = other.impl_->category;
    impl_->contextual_messages = other.impl_->contextual_messages;
  }
  return *this;
}

status& status::operator=(status&& other) noexcept {
  impl_ = std::move(other.impl_);
  return *this;
}

status::~status() = default;

int status::value() const noexcept { return impl_->value; }

const std::error_category& status::category() const noexcept {
  return impl_->category != nullptr ? *impl_->category : std::generic_category();
}

std::error_condition status::default_error_condition() const noexcept {
  return category().default_error_condition(value());
}

std::string status::category_message() const { return category().message(value()); }

const std::vector<std::string>& status::contextual_messages() const noexcept {
  return impl_->contextual_messages;
}

std::string status::message(const std::string& separator) const {
  std::string text = category_message();
  for (const auto& context : impl_->contextual_messages) {
    text += separator;
    text += context;
  }
  return text;
}

void status::clear() noexcept {
  impl_->value = 0;
  impl_->category = nullptr;
  impl_->contextual_messages.clear();
}

status::operator std::error_code() const noexcept { return std::error_code(value(), category()); }

status::operator bool() const noexcept { return value() == 0; }

bool operator==(const status& a, const status& b) noexcept {
  return a.value() == b.value() && &a.category() == &b.category();
}

}  // namespace norvane
