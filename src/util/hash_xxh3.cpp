// XXH3 through the runtime-dispatched entry points (AVX2 or AVX-512 when the
// CPU has them): incremental hashers and the one-shot hashes of long inputs.
#include <norvane/hash_xxh3.hpp>

#include "util/hasher_pimpl.hpp"
#include "util/xxh3_long.hpp"

#if defined(__x86_64__) || defined(_M_X64)
#include <xxh_x86dispatch.h>
#endif

#include <memory>
#include <new>

namespace norvane {

hash_128_t XXH128_to_hash_128_t(const XXH128_hash_t& hash) noexcept {
  return hash_128_t{hash.low64, hash.high64};
}

namespace details {

std::uint64_t xxh3_64_long(std::string_view data) { return XXH3_64bits(data.data(), data.size()); }

hash_128_t xxh3_128_long(std::string_view data) {
  return XXH128_to_hash_128_t(XXH3_128bits(data.data(), data.size()));
}

}  // namespace details

namespace {

struct xxh3_state_deleter {
  void operator()(XXH3_state_t* state) const noexcept { XXH3_freeState(state); }
};

struct xxh3_pimpl : hasher_pimpl {
  xxh3_pimpl() : state(XXH3_createState()) {
    if (!state) {
      throw std::bad_alloc();
    }
  }
  std::unique_ptr<XXH3_state_t, xxh3_state_deleter> state;
};

struct xxh3_64_pimpl : xxh3_pimpl {
  xxh3_64_pimpl() { XXH3_64bits_reset(state.get()); }
  void absorb(const void* data, std::size_t size) override { XXH3_64bits_update(state.get(), data, size); }
};

struct xxh3_128_pimpl : xxh3_pimpl {
  xxh3_128_pimpl() { XXH3_128bits_reset(state.get()); }
  void absorb(const void* data, std::size_t size) override { XXH3_128bits_update(state.get(), data, size); }
};

}  // namespace

xxh3_64_hasher::xxh3_64_hasher() : hasher(*new xxh3_64_pimpl) {}
xxh3_64_hasher::~xxh3_64_hasher() = default;

std::uint64_t xxh3_64_hasher::finish() {
  auto& impl = static_cast<xxh3_64_pimpl&>(handle());
  const std::uint64_t hash = XXH3_64bits_digest(impl.state.get());
  XXH3_64bits_reset(impl.state.get());
  impl.size_hashed = 0;
  return hash;
}

xxh3_128_hasher::xxh3_128_hasher() : hasher(*new xxh3_128_pimpl) {}
xxh3_128_hasher::~xxh3_128_hasher() = default;

hash_128_t xxh3_128_hasher::finish() {
  auto& impl = static_cast<xxh3_128_pimpl&>(handle());
  const hash_128_t hash = XXH128_to_hash_128_t(XXH3_128bits_digest(impl.state.get()));
  XXH3_128bits_reset(impl.state.get());
  impl.size_hashed = 0;
  return hash;
}

}  // namespace norvane
