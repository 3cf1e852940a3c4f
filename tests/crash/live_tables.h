// Two tables that one process writes in one sequence of uniform ids while others read, query and watch them. Every
// function here is the life of a child: 0 when all went well, else 1 with the sentence in the state's problem.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/crash/shared_page.h"
#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {

inline constexpr std::size_t LIVE_TABLES = 2;
inline constexpr std::size_t MOST_FOLLOWERS = 16;
inline constexpr std::int32_t PRESENT_BEFORE = 20;  // messages that are there before the followers start

struct LiveState {
    std::array<std::atomic<std::int32_t>, LIVE_TABLES> acknowledged{};  // messages of each table
    std::atomic<std::int32_t> lastId = 0;                               // of all of them
    std::atomic<std::int32_t> ready = 0;                                // followers that have opened what they follow
    std::array<std::atomic<std::int64_t>, MOST_FOLLOWERS> answers{};    // that each follower has got and checked
    // The writer holds the tables, and is about to let them go; it does not begin to while `keepOpen` is set.
    std::atomic<bool> holding = false;
    std::atomic<bool> releasing = false;
    std::atomic<bool> keepOpen = false;
    SharedProblem problem;
};

enum class LiveFilter { none, symbol, quantities, sequence };

// What is written, known to everybody.
class LiveTraffic {
  public:
    LiveTraffic(std::string root, std::uint32_t seed, std::int32_t last);

    const std::string& root() const { return root_; }
    std::int32_t last() const { return last_; }
    const TableShape& shape(std::size_t table) const { return shapes_.at(table); }
    std::size_t tableOf(std::int32_t id) const;
    Message message(std::int32_t id) const;
    // The ids in a table, in their order.
    const std::vector<std::int32_t>& ids(std::size_t table) const { return ids_.at(table); }
    // The ids among the first `count` of a table that a filter selects.
    std::vector<std::int32_t> matches(std::size_t table, LiveFilter filter, std::size_t count) const;

  private:
    std::string root_;
    std::uint32_t seed_;
    std::int32_t last_;
    std::array<TableShape, LIVE_TABLES> shapes_;
    std::array<std::vector<std::int32_t>, LIVE_TABLES> ids_;
};

// Makes the tables with their first messages.
int makeLiveTables(const LiveTraffic& traffic, LiveState* state);
// Writes the rest; stops itself now and then at a call to the file system.
int writeLive(const LiveTraffic& traffic, LiveState* state, std::uint64_t random);
// Lookups and walks in a table opened read-only.
int readLive(const LiveTraffic& traffic, LiveState* state, std::size_t table, std::size_t follower);
// One forward iterator, kept open to the end.
int iterateLive(const LiveTraffic& traffic, LiveState* state, std::size_t table, LiveFilter filter,
                std::size_t follower);
// New backward iterators again and again.
int iterateLiveBackward(const LiveTraffic& traffic, LiveState* state, std::size_t table, LiveFilter filter,
                        std::size_t follower);
// A watch over both tables from an id on that is there already.
int watchLive(const LiveTraffic& traffic, LiveState* state, std::int32_t from, std::size_t follower);

}  // namespace tabulo::internal::test
