// The outcome of an operation: an error value, the category that gives it a
// meaning, and the context strings callers add on the way up. A status is
// one pointer wide; its state lives in a private record.
#pragma once

#include <norvane/export.hpp>

#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace norvane {

class NORVANE_API status {
public:
  struct pimpl;

  // Value 0 (success), generic category, no contexts.
  status();
  static status ok();
  // Keeps the category's address: it must outlive the status, as the standard
  // categories do.
  status(int value, const std::error_category& category, std::vector<std::string>&& contextual_messages);

  status(const status& other);
  // Leaves `other` without a record: it may then only be assigned to or destroyed.
  status(status&& other) noexcept;
  // Writes into this status's own record, so the target must not be moved-from.
  status& operator=(const status& other);
  // Frees this record first, then takes the other's. Moving a status into
  // itself therefore leaves it empty; that is intended, not guarded against.
  status& operator=(status&& other) noexcept;
  ~status();

  int value() const noexcept;
  // std::generic_category() when no category was given.
  const std::error_category& category() const noexcept;
  std::error_condition default_error_condition() const noexcept;
  std::string category_message() const;
  const std::vector<std::string>& contextual_messages() const noexcept;
  // The category message followed by each context, every one preceded by
  // `separator`; with no contexts, the category message alone.
  std::string message(const std::string& separator) const;
  // Back to success; the context vector keeps its capacity.
  void clear() noexcept;

  operator std::error_code() const noexcept;
  // True on success, the reverse of std::error_code: `if (st)` reads "if it worked".
  explicit operator bool() const noexcept;

private:
  std::unique_ptr<pimpl> impl_;
};

// Same value and same category object; contexts take no part.
NORVANE_API bool operator==(const status& a, const status& b) noexcept;

}  // namespace norvane
