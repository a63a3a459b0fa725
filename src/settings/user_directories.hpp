// The platform layer's directories beyond those in the public header: for
// the library's own use, not exported.
#pragma once

#include <filesystem>

namespace norvane::details {

// The user's cache, state and runtime base directories; empty when unknown.
// The runtime directory has no fallback here: the caller chooses one.
std::filesystem::path user_cache_directory();
std::filesystem::path user_state_directory();
std::filesystem::path user_runtime_directory();

}  // namespace norvane::details
