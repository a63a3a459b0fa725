// The private record of yaml::ryml_wrapper.
#pragma once

#include <norvane/yaml.hpp>

#include "yaml/scalar_kind.hpp"

#include <atomic>

namespace norvane::yaml {

struct ryml_wrapper::pimpl {
  // Raw: every handle on the tree shares it, and the last share released frees it.
  tree* shared_tree = nullptr;
  node_ref node;
  std::atomic<long>* share_count = nullptr;
  details::scalar_value value;

  void add_share() noexcept { share_count->fetch_add(1, std::memory_order_seq_cst); }
};

namespace details {

// Counter cells live in a process-wide pool: the last handle of a tree
// keeps its cell for good, and pooling keeps those cells reachable.
std::atomic<long>* new_share_counter(long initial);
void free_share_counter(std::atomic<long>* cell) noexcept;

}  // namespace details

}  // namespace norvane::yaml
