// Retrying a system call that a signal interrupted before it did anything:
// the one place the library spells the EINTR loop.
#pragma once

#include <cerrno>

namespace norvane::details {

// Calls `call` until it returns something other than -1 with errno EINTR,
// and returns that result (errno is left as the last call set it).
template <typename Call>
auto retry_on_eintr(Call call) {
  for (;;) {
    auto result = call();
    if (!(result == -1 && errno == EINTR)) {
      return result;
    }
  }
}

}  // namespace norvane::details
