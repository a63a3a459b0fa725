// The platform layer: the user's base directories, for the library's own
// use, not exported.
#pragma once

#include <filesystem>
#include <vector>

namespace norvane::details {

// The user's data directories (most preferred first), configuration
// directory and home directory; empty when unknown.
std::vector<std::filesystem::path> user_data_directories();
std::filesystem::path user_config_directory();
std::filesystem::path user_home_directory();

// The user's cache, state and runtime base directories; empty when unknown.
// The runtime directory has no fallback here: the caller chooses one.
std::filesystem::path user_cache_directory();
std::filesystem::path user_state_directory();
std::filesystem::path user_runtime_directory();

}  // namespace norvane::details
