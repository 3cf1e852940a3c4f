// Message tables walked, read by id, looked up, queried and watched without memory.
#include "index/uniform_lookup.h"
#include "messagetable/message_lookup.h"
#include "messagetable/table_walk.h"
#include "query/message_read.h"
#include "tests/faults/memory_case.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/current_message.h"
#include "tests/support/message_takers.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t STORED = 11;

using Prepare = std::function<void(MemoryStage&)>;

// Two closed blocks and an open one; some messages are larger than what readers begin with.
std::vector<Message> storedMessages(const TableShape& shape) {
    std::vector<Message> messages = simpleMessages(1, STORED, shape);
    messages[5].strings.back() = std::string(30000, 'x');
    messages[9].strings.back() = std::string(40000, 'y');
    return messages;
}

Bytes storedImage(const TableShape& shape) {
    return unclosedImage(shape, storedMessages(shape));
}

Prepare opened(const TableImage& image, OpenMode mode) {
    return [image, mode](MemoryStage& stage) {
        image.place(stage.run);
        stage.table = openTable(stage.run.root(), mode, stage.run.shape);
    };
}

// A reader whose view is that of the first three messages, with the file grown behind it.
Prepare outgrown(const TableImage& first, const TableImage& grown) {
    return [first, grown](MemoryStage& stage) {
        opened(first, OpenMode::read)(stage);
        EXPECT_EQ(mt_refresh(stage.table.get()), NO_ERROR);
        patchFile(stage.run.path(), 0, grown.bytes());
    };
}

template <bool backward>
ErrorCode walk(MemoryStage& stage, Digests* answer) {
    MessageTable* table = stage.table.get();
    const BlockReaderPtr frames(mfr_createReader(table->storage.get(), table->header.layout));
    if (frames == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    const auto take = [answer](const MessageView& message) {
        answer->addMessage(message);
        return Visit::goOn;
    };
    return backward ? mfr_readBackward(frames.get(), mt_openBlockStart(table), visitorOf(&take))
                    : mfr_readForward(frames.get(), table->storage->headerSize, visitorOf(&take));
}

template <bool backward>
ErrorCode readById(MemoryStage& stage, Digests* answer) {
    constexpr std::array<std::int32_t, 5> ids = {2, 6, 10, STORED, 500};
    const MessageListener listener{answer,
                                   [](void* owner, const MessageView& message, Visit*) {
                                       static_cast<Digests*>(owner)->addMessage(message);
                                       return NO_ERROR;
                                   },
                                   [](void* owner, ErrorCode code) {
                                       if (code == NO_ERROR) {
                                           static_cast<Digests*>(owner)->add("end");
                                       }
                                       return code;
                                   }};
    return mt_readMessages(stage.table.get(), ids.data(), static_cast<std::int32_t>(ids.size()), &listener, backward);
}

ErrorCode refresh(MemoryStage& stage, Digests* answer) {
    const ErrorCode code = mt_refresh(stage.table.get());
    if (code == NO_ERROR) {
        answer->add(stage.table->records.staticIndexes.lastUniform);
        answer->add(mt_openBlockStart(stage.table.get()));
    }
    return code;
}

// All lookups; the first failure ends them, and the next attempt begins anew.
ErrorCode lookUp(MemoryStage& stage, Digests* answer) {
    MessageTable* table = stage.table.get();
    std::int32_t number = 0;
    std::int64_t timestamp = 0;
    using Lookup = ErrorCode (*)(MessageTable*, std::int32_t*, std::int64_t*);
    constexpr std::array<Lookup, 5> lookups = {
        [](MessageTable* t, std::int32_t* n, std::int64_t*) { return mt_getLastUniformMessageId(t, n); },
        [](MessageTable* t, std::int32_t* n, std::int64_t*) { return mt_getLastMessageId(t, 0, n); },
        [](MessageTable* t, std::int32_t* n, std::int64_t* s) { return mt_getLastGoodMsgSeqNum(t, 0, n, s); },
        [](MessageTable* t, std::int32_t* n, std::int64_t*) { return mt_getFirstPendingMsgSeqNum(t, 0, n); },
        [](MessageTable* t, std::int32_t* n, std::int64_t*) { return mt_getLastPendingMsgSeqNum(t, 0, n); }};
    for (const Lookup lookup : lookups) {
        const ErrorCode code = lookup(table, &number, &timestamp);
        if (code != NO_ERROR) {
            return code;
        }
        answer->add(number);
        answer->add(timestamp);
    }
    return NO_ERROR;
}

ErrorCode findUniformId(MemoryStage& stage, Digests* answer) {
    UniformPlace place;
    const ErrorCode code = mt_findUniformId(stage.table.get(), 7, &place);
    if (code == NO_ERROR) {
        answer->add(place.offset);
        answer->add(place.ordinal);
        answer->add(place.skip);
    }
    return code;
}

QueryConditions* newConditions(bool backward) {
    QueryConditions* conditions = conditions_create();
    EXPECT_EQ(conditions_setIterateBackward(conditions, backward), NO_ERROR);
    EXPECT_EQ(conditions_setSeqNumRange(conditions, 3, 10), NO_ERROR);
    return conditions;
}

Prepare withConditions(const Prepare& prepare, bool backward) {
    return [prepare, backward](MemoryStage& stage) {
        prepare(stage);
        stage.conditions = {newConditions(backward), newConditions(backward)};
    };
}

ErrorCode openIterator(MemoryStage& stage, Digests*) {
    QueryConditions*& conditions = stage.conditions.at(stage.attempts++);
    stage.iterator.reset(mtIterator_open(stage.table.get(), conditions));
    conditions = nullptr;  // the iterator's in every case
    return stage.iterator == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

Prepare withIterator(const Prepare& prepare, bool backward) {
    return [prepare, backward](MemoryStage& stage) {
        prepare(stage);
        stage.iterator.reset(mtIterator_open(stage.table.get(), newConditions(backward)));
        EXPECT_NE(stage.iterator, nullptr);
    };
}

// To the end; after a failure the next attempt goes on behind the last match.
ErrorCode iterate(MemoryStage& stage, Digests* answer) {
    const MessageTableIterator* iterator = stage.iterator.get();
    bool end = false;
    ErrorCode code = NO_ERROR;
    while (code == NO_ERROR && !end) {
        code = mtIterator_next(stage.iterator.get(), &end);
        if (code == NO_ERROR && !end) {
            stage.delivered.addMessage(currentMessage(iterator));
        }
    }
    *answer = stage.delivered;
    return code;
}

// The stage's table and a second one with the ids behind the first one's.
Prepare twoTables(const TableImage& first, const TableImage& second) {
    return [first, second](MemoryStage& stage) {
        second.place(stage.run);
        stage.secondTable = openTable(stage.run.root(), OpenMode::read, stage.run.shape);
        opened(first, OpenMode::read)(stage);
    };
}

ErrorCode createWatcher(MemoryStage& stage, Digests*) {
    const std::array<MessageTable*, 2> tables = {stage.table.get(), stage.secondTable.get()};
    stage.watcher = messageWatcher_create(tables.data(), 2);
    return stage.watcher == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

Prepare withWatcher(const Prepare& prepare) {
    return [prepare](MemoryStage& stage) {
        prepare(stage);
        EXPECT_EQ(createWatcher(stage, nullptr), NO_ERROR);
    };
}

// Until nothing is new; after a failure the next attempt goes on behind the last delivery.
ErrorCode watch(MemoryStage& stage, Digests* answer) {
    const std::array<std::int32_t, 2> ids = {stage.lastId + 1, stage.lastId + 1};
    const auto take = [&stage](const MessageView& message, std::int32_t) {
        stage.delivered.addMessage(message);
        stage.lastId = message.metadata.uniformId;
        return true;
    };
    const ErrorCode code = messageWatcher_startWatching(stage.watcher, 2, ids.data(), watchListenerOf(&take));
    *answer = stage.delivered;
    return code;
}

}  // namespace

std::vector<MemoryCase> readingCases() {
    const TableShape shape = largeFooterShape();
    const TableImage table(shape, storedImage);
    const TableImage first(shape, [](const TableShape& s) { return unclosedImage(s, simpleMessages(1, 3, s)); });
    TableShape otherShape = shape;
    otherShape.name = "fills";
    const TableImage other(otherShape, [](const TableShape& s) { return closedImage(s, simpleMessages(12, 20, s)); });
    const Prepare reader = opened(table, OpenMode::read);
    const Prepare writer = opened(table, OpenMode::write);
    const Prepare follower = outgrown(first, table);
    const Prepare two = twoTables(table, other);
    return {
        {"WalkForward", reader, walk<false>},
        {"WalkBackward", writer, walk<true>},
        {"ReadMessagesForward", reader, readById<false>},
        {"ReadMessagesBackward", follower, readById<true>},
        {"Refresh", follower, refresh},
        {"LookUpAsAReader", follower, lookUp},
        {"LookUpAsTheWriter", writer, lookUp},
        {"FindAUniformId", follower, findUniformId},
        {"OpenAnIteratorForward", withConditions(reader, false), openIterator},
        {"OpenAnIteratorBackward", withConditions(follower, true), openIterator},
        {"IterateForward", withIterator(reader, false), iterate},
        {"IterateBackward", withIterator(writer, true), iterate},
        {"CreateAWatcher", two, createWatcher},
        {"Watch", withWatcher(two), watch},
    };
}

}  // namespace tabulo::internal::test
