// What the processes of these tests write: messages of every form and session values, each decided by its number alone,
// so that a process which has seen nothing of the writing knows what must be there.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/handle.h"
#include "sessioninfo/session_info_table.h"
#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {

// The numbers from which everything random of a message comes.
std::uint64_t mixed(std::uint64_t seed, std::uint64_t number);

struct CrashTraffic {
    TableShape shape;
    std::uint32_t seed = 0;
    bool withLargeTexts = false;  // now and then one of 70,000 bytes
    std::int32_t burst = 40;      // messages that are written in one go, at most
    std::int32_t longest = 3000;  // messages after which a writer drops the table

    // Message n of a generation; each drop begins a new one.
    Message message(std::int32_t generation, std::int32_t n) const;
};

// Stores a message as mt_writeMessage does, or as one encoded frame; `number` decides.
ErrorCode storeInAnyForm(MessageTable* table, const Message& message, std::uint64_t number);

// What the lookups of a table with these messages must answer, in a sentence what they answer otherwise.
std::string lookupProblem(MessageTable* table, const std::vector<Message>& messages);

// Where a file differs from the expected one, in a sentence; "" when it does not.
std::string fileProblem(const Bytes& actual, const Bytes& expected);

// The session info table "session" that the writers keep beside the message table.
inline constexpr std::array<std::int32_t, 6> SESSION_TAGS{2, 1, 3, 4, 5, 6};
using SessionValues = std::array<std::int64_t, SESSION_TAGS.size()>;
using SessionTablePtr = Handle<SessionInfoTable, si_destroy>;

SessionTablePtr createSession(const std::string& root);
// What the table holds behind write `number`; all 0 behind none, and behind each that is a drop of the values.
SessionValues sessionValues(std::int64_t number);
ErrorCode storeSession(SessionInfoTable* table, std::int64_t number);

}  // namespace tabulo::internal::test
