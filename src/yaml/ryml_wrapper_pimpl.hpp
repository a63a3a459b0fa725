// The private record of yaml::ryml_wrapper.
#pragma once

#include <norvane/yaml.hpp>

#include <atomic>
#include <cstdint>

namespace norvane::yaml {

struct ryml_wrapper::pimpl {
  struct text_view {
    const char* data;
    std::size_t size;
  };
  union cached_value {
    bool b;
    long long i;
    double f;
    text_view s;
  };

  tree* t = nullptr;
  node_ref node;
  std::atomic<long>* share_count = nullptr;
  cached_value value{};
  std::uint32_t value_kind = 0;

  void incr() noexcept { share_count->fetch_add(1, std::memory_order_seq_cst); }
  void decr() noexcept { share_count->fetch_sub(1, std::memory_order_seq_cst); }
};

namespace details {

// Counter cells live in a process-wide pool: the last handle of a tree
// keeps its cell for good, and pooling keeps those cells reachable.
std::atomic<long>* new_share_counter(long initial);
void free_share_counter(std::atomic<long>* cell) noexcept;

}  // namespace details

}  // namespace norvane::yaml
