#include "tool/id_set.h"

#include <functional>

namespace tabulo::tool {

std::string_view IdSet::operator[](std::size_t n) const noexcept {
    const std::size_t begin = n == 0 ? 0 : ends_[n - 1];
    return std::string_view(bytes_).substr(begin, ends_[n] - begin);
}

// The slot that has the id, or the free one where it belongs.
std::size_t IdSet::slotOf(std::string_view id) const noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = std::hash<std::string_view>()(id) & mask;
    while (slots_[slot] != 0 && (*this)[slots_[slot] - 1] != id) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

bool IdSet::contains(std::string_view id) const noexcept {
    return !slots_.empty() && slots_[slotOf(id)] != 0;
}

bool IdSet::add(std::string_view id) {
    if (slots_.size() * 3 <= ends_.size() * 4) {
        grow();
    }
    const std::size_t slot = slotOf(id);
    if (slots_[slot] != 0) {
        return false;
    }
    bytes_ += id;
    ends_.push_back(bytes_.size());
    slots_[slot] = static_cast<std::uint32_t>(ends_.size());
    return true;
}

void IdSet::grow() {
    constexpr std::size_t FIRST_SIZE = 16;
    slots_.assign(slots_.empty() ? FIRST_SIZE : slots_.size() * 2, 0);
    for (std::size_t n = 0; n < ends_.size(); ++n) {
        slots_[slotOf((*this)[n])] = static_cast<std::uint32_t>(n + 1);
    }
}

}  // namespace tabulo::tool
