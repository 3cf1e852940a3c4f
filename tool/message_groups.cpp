#include "tool/message_groups.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace tabulo::tool {

namespace {

constexpr std::size_t KEYS_PIECE = std::size_t{64} * 1024;
constexpr std::size_t FIRST_PLACES = 1024;

void countSecond(MessageGroup* group, std::int64_t second) {
    if (group->inSecond > 0 && second == group->second) {
        group->inSecond += 1;
    } else if (group->inSecond > 0 && second == group->second - 1) {
        group->before += 1;
    } else {
        group->before = group->inSecond > 0 && second == group->second + 1 ? group->inSecond : 0;
        group->second = second;
        group->inSecond = 1;
    }
    group->peak = std::max({group->peak, group->inSecond, group->before});
}

}  // namespace

MessageGroups::MessageGroups() : places_(FIRST_PLACES, 0) {
}

void MessageGroups::add(std::string_view key, std::int64_t bytes, std::int64_t time,
                        std::optional<std::int64_t> second) {
    MessageGroup& group = groupOf(key);
    group.firstTime = group.messages == 0 ? time : std::min(group.firstTime, time);
    group.lastTime = group.messages == 0 ? time : std::max(group.lastTime, time);
    group.messages += 1;
    group.bytes += bytes;
    if (second.has_value()) {
        countSecond(&group, *second);
    }
}

// Where a key's group is found, or the free place for it.
std::size_t MessageGroups::placeOf(std::string_view key) const {
    const std::size_t mask = places_.size() - 1;
    std::size_t place = std::hash<std::string_view>()(key) & mask;
    while (places_[place] != 0 && groups_[places_[place] - 1].key != key) {
        place = (place + 1) & mask;
    }
    return place;
}

MessageGroup& MessageGroups::groupOf(std::string_view key) {
    std::size_t place = placeOf(key);
    if (places_[place] == 0) {
        if (groups_.size() >= places_.size() / 4 * 3) {
            grow();
            place = placeOf(key);
        }
        groups_.push_back({.key = keep(key)});
        places_[place] = static_cast<std::uint32_t>(groups_.size());
    }
    return groups_[places_[place] - 1];
}

void MessageGroups::grow() {
    places_.assign(places_.size() * 2, 0);
    for (std::size_t i = 0; i < groups_.size(); ++i) {
        places_[placeOf(groups_[i].key)] = static_cast<std::uint32_t>(i + 1);
    }
}

std::string_view MessageGroups::keep(std::string_view key) {
    if (key.empty()) {
        return {};
    }
    if (keysLeft_ < key.size()) {
        keysLeft_ = std::max(KEYS_PIECE, key.size());
        keys_.push_back(std::make_unique_for_overwrite<char[]>(keysLeft_));
        nextKey_ = keys_.back().get();
    }
    char* const kept = nextKey_;
    std::memcpy(kept, key.data(), key.size());
    nextKey_ += key.size();
    keysLeft_ -= key.size();
    return {kept, key.size()};
}

std::vector<const MessageGroup*> MessageGroups::sorted(bool byKey) const {
    std::vector<const MessageGroup*> sorted;
    sorted.reserve(groups_.size());
    for (const MessageGroup& group : groups_) {
        sorted.push_back(&group);
    }
    std::sort(sorted.begin(), sorted.end(), [byKey](const MessageGroup* a, const MessageGroup* b) {
        return byKey || a->messages == b->messages ? a->key < b->key : a->messages > b->messages;
    });
    return sorted;
}

}  // namespace tabulo::tool
