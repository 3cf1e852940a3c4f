// Operations without memory: a case names one operation, which a driver repeats with its n-th allocation failing.
//
// A case prepares a stage with memory, and then operates on it. While an allocation fails nothing but the operation may
// allocate: what it delivers is kept as digests in a fixed array. The operation is then repeated with memory, on the
// same stage, and has to come to what an undisturbed run comes to.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "core/bloom_filter.h"
#include "messagetable/message_table.h"
#include "query/message_table_iterator.h"
#include "sessioninfo/session_info_table.h"
#include "tests/faults/fault_scenario.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::test {

// What an operation delivered: one digest for each message or value.
struct Digests {
    std::array<std::uint64_t, 128> items{};
    std::size_t count = 0;

    void add(std::string_view bytes);
    void add(std::int64_t number);
    void addMessage(const MessageView& message);
    bool operator==(const Digests& other) const;
    bool startsLike(const Digests& whole) const;
};

// Of the public API (memory_api_case.h).
struct ApiObjects;

// Everything that a case may need. Members that an operation makes are taken down by the stage.
struct MemoryStage {
    MemoryStage() = default;
    ~MemoryStage();
    MemoryStage(const MemoryStage&) = delete;
    MemoryStage& operator=(const MemoryStage&) = delete;

    ScenarioRun run;   // the directory and the shape
    std::string path;  // of the table, or of a file
    // A configuration and conditions for every attempt: they are gone with an attempt that fails.
    std::array<KSVTboTableConfig*, 2> configs{};
    std::array<QueryConditions*, 2> conditions{};
    std::size_t attempts = 0;

    ByteStreamPtr stream;
    BloomFilterPtr filter;
    TableFile* file = nullptr;
    SessionInfoTable* session = nullptr;
    MessageTablePtr table;
    MessageTablePtr secondTable;
    MessageTableIteratorPtr iterator;
    MessageWatcher* watcher = nullptr;
    std::shared_ptr<ApiObjects> api;
    std::vector<Message> messages;
    std::vector<MessageFields> fields;  // of `messages`, in the form that a write takes
    Bytes bytes;
    std::int32_t lastId = 0;
    bool halfChanged = false;  // an operation that failed has changed what it should have left
    bool misnamed = false;     // an Error has named a file that it is not about
    Digests delivered;         // over both attempts, of operations that go on where they stopped
};

// What an operation may leave when it fails.
enum class Leaves { filesAsTheyWere, filesThatTheNextAttemptCompletes };

struct MemoryCase {
    std::string name;  // letters and digits: it becomes part of a test's name
    std::function<void(MemoryStage&)> prepare;
    ErrorCode (*operate)(MemoryStage&, Digests*);
    ErrorCode refusal = OUT_OF_MEMORY_ERROR;
    Leaves leaves = Leaves::filesAsTheyWere;
};
inline void PrintTo(const MemoryCase& one, std::ostream* out) {
    *out << one.name;
}

std::vector<MemoryCase> streamAndFileCases();
std::vector<MemoryCase> sessionCases();
std::vector<MemoryCase> tableCases();
std::vector<MemoryCase> readingCases();
std::vector<MemoryCase> queryCases();
std::vector<MemoryCase> apiReadingCases();
std::vector<MemoryCase> apiWritingCases();

// Lets the operation's allocations fail: each alone, and each with all behind it. What is wrong fails the test. The
// result is the number of allocations that failed.
std::int64_t runWithoutMemory(const MemoryCase& one);

}  // namespace tabulo::internal::test
