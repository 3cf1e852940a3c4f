// Counts of messages by key, in little memory: about 90 bytes for each key, and the key.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace tabulo::tool {

struct MessageGroup {
    std::string_view key;
    std::int64_t messages = 0;
    std::int64_t bytes = 0;
    std::int64_t firstTime = 0;  // the smallest
    std::int64_t lastTime = 0;   // the largest
    std::int64_t second = 0;     // the newest one that was counted in
    std::int32_t inSecond = 0;   // messages of that second
    std::int32_t before = 0;     // messages of the second before it
    std::int32_t peak = 0;       // the most messages of one second
};

class MessageGroups {
  public:
    MessageGroups();

    // Counts a message in. Its second counts for the peak; one that comes a second late is counted where it belongs,
    // and after a larger step back counting begins anew.
    void add(std::string_view key, std::int64_t bytes, std::int64_t time, std::optional<std::int64_t> second);

    std::size_t size() const noexcept { return groups_.size(); }
    // In the order of the keys, or the largest first and the order of the keys among equals. Valid until the next add.
    std::vector<const MessageGroup*> sorted(bool byKey) const;

  private:
    MessageGroup& groupOf(std::string_view key);
    std::string_view keep(std::string_view key);
    void grow();
    std::size_t placeOf(std::string_view key) const;

    std::deque<MessageGroup> groups_;
    std::vector<std::uint32_t> places_;  // of groups by the hash of their keys, counted from 1; 0 for a free place
    std::vector<std::unique_ptr<char[]>> keys_;
    std::size_t keysLeft_ = 0;  // bytes free in the last piece of keys
    char* nextKey_ = nullptr;
};

}  // namespace tabulo::tool
