// A set of ids that takes little more memory than their bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tabulo::tool {

class IdSet {
  public:
    // False when it was there.
    bool add(std::string_view id);
    bool contains(std::string_view id) const noexcept;
    std::size_t size() const noexcept { return ends_.size(); }
    // The n-th in the order in which they were added; valid until the next one is.
    std::string_view operator[](std::size_t n) const noexcept;

  private:
    std::size_t slotOf(std::string_view id) const noexcept;
    void grow();

    std::string bytes_;                 // of all ids, one behind the other
    std::vector<std::size_t> ends_;     // where each one ends in them
    std::vector<std::uint32_t> slots_;  // a hash table of numbers of ids, 0 for a free one; at most three quarters full
};

}  // namespace tabulo::tool
