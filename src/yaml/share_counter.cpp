// The pool of share counter cells used by YAML handles.
#include "yaml/ryml_wrapper_pimpl.hpp"

#include <deque>
#include <mutex>
#include <vector>

namespace norvane::yaml::details {

namespace {

struct counter_pool {
  std::mutex lock;
  std::deque<std::atomic<long>> cells;  // a deque never moves its elements
  std::vector<std::atomic<long>*> free_cells;
};

counter_pool& pool() {
  // Leaked on purpose: handles in static objects may release cells during
  // exit, after a function-local pool would have been destroyed.
  static auto* p = new counter_pool;
  return *p;
}

}  // namespace

std::atomic<long>* new_share_counter(long initial) {
  counter_pool& p = pool();
  std::atomic<long>* cell = nullptr;
  {
    std::lock_guard<std::mutex> guard(p.lock);
    if (!p.free_cells.empty()) {
      cell = p.free_cells.back();
      p.free_cells.pop_back();
    } else {
      cell = &p.cells.emplace_back(0);
    }
  }
  cell->store(initial, std::memory_order_seq_cst);
  return cell;
}

void free_share_counter(std::atomic<long>* cell) noexcept {
  counter_pool& p = pool();
  std::lock_guard<std::mutex> guard(p.lock);
  try {
    p.free_cells.push_back(cell);
  } catch (...) {
    // Without room to record it the cell simply stays unused.
  }
}

}  // namespace norvane::yaml::details
