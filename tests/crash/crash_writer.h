// A process that writes a message table and a session info table until it is killed, and tells in shared memory what it
// is about to do and what was acknowledged.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "tests/crash/crash_traffic.h"
#include "tests/crash/shared_page.h"

namespace tabulo::internal::test {

// What a table holds: the first so many messages of a generation. Message 0 stands for an empty one.
struct TableContent {
    std::int32_t generation = 0;
    std::int32_t messages = 0;

    bool operator==(const TableContent&) const = default;
    std::uint64_t packed() const {
        return static_cast<std::uint64_t>(generation) << 32 | static_cast<std::uint32_t>(messages);
    }
    static TableContent unpacked(std::uint64_t value) {
        return {static_cast<std::int32_t>(value >> 32), static_cast<std::int32_t>(value & 0xffffffff)};
    }
    std::string text() const {
        return std::to_string(messages) + " messages of generation " + std::to_string(generation);
    }
};

enum class WriterStep { opening, creating, writing, closing, dropping, writingSession };
inline constexpr std::array<const char*, 6> WRITER_STEPS{"opening", "creating anew", "writing a message",
                                                         "closing", "dropping",      "writing values"};

struct WriterState {
    // Each pair is equal while no change is under way. A change is one store, so that a kill finds the old or the new.
    std::atomic<std::uint64_t> content = 0;      // acknowledged, as TableContent::packed
    std::atomic<std::uint64_t> nextContent = 0;  // what the operation at work makes of it
    std::atomic<std::int64_t> session = 0;       // number of the acknowledged write of the session values
    std::atomic<std::int64_t> nextSession = 0;   // of the one at work
    std::atomic<WriterStep> step = WriterStep::opening;
    std::atomic<std::int64_t> written = 0;     // messages acknowledged in all
    std::atomic<std::int64_t> operations = 0;  // of the life at hand
    SharedProblem problem;
};

// One life of the writer: opens (and with it recovers) the tables, writes, closes, opens again, drops, all at random.
// Returns only when something fails, with the sentence in the state's problem.
int writeUntilKilled(const std::string& root, const CrashTraffic& traffic, WriterState* state, std::uint64_t random);

}  // namespace tabulo::internal::test
