// Ownership of what a `_create` operation gives and its `_destroy` takes back.
#pragma once

#include <memory>

namespace tabulo::internal {

template <typename T, auto destroy>
struct HandleDestroyer {
    void operator()(T* object) const noexcept { destroy(object); }
};

// Owns one object and ends it with `destroy`, which accepts null.
template <typename T, auto destroy>
using Handle = std::unique_ptr<T, HandleDestroyer<T, destroy>>;

}  // namespace tabulo::internal
