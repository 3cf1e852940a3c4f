// Message tables read: walks, queries, lookups and reads by id, of readers and of the writer itself.
#include "index/uniform_lookup.h"
#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/faults/fault_scenario.h"
#include "tests/messagetable/table_image.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/current_message.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t STORED = 11;  // two closed blocks and an open one

void walks(ScenarioRun& run, MessageTable* table) {
    for (int times = 0; times < 2; ++times) {
        const ReadMessages forward = readAll(table);
        run.did(WALK, forward.code, linesOf(forward.messages));
        const ReadMessages backward = readAllBackward(table);
        run.did(WALK, backward.code, linesOf(backward.messages));
    }
}

// Messages 3 to 9, which stand in all three blocks. A query that has failed is asked on: it may not skip or repeat.
void query(ScenarioRun& run, MessageTable* table, bool backward) {
    QueryConditionsPtr conditions(conditions_create());
    EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 3, 9), NO_ERROR);
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions.release()));
    run.did(OPEN_ITERATOR, iterator == nullptr ? NULL_POINTER_ERROR : NO_ERROR);
    Answer answer;
    for (int times = 0; times < 2; ++times) {
        bool end = iterator == nullptr;
        ErrorCode code = iterator == nullptr ? MASTER_INACTIVE_ERROR : NO_ERROR;
        while (code == NO_ERROR && !end) {
            code = mtIterator_next(iterator.get(), &end);
            if (code == NO_ERROR && !end) {
                answer.push_back(lineOf(ownedMessage(currentMessage(iterator.get()))));
            }
        }
        run.did(NEXT, code, answer);
    }
}

void queries(ScenarioRun& run, MessageTable* table) {
    for (int times = 0; times < 2; ++times) {
        query(run, table, false);
        query(run, table, true);
    }
}

void lookups(ScenarioRun& run, MessageTable* table) {
    std::int32_t number = 0;
    std::int64_t timestamp = 0;
    const auto answer = [&](ErrorCode code) {
        run.did(LOOKUP, code, code == NO_ERROR ? Answer{std::to_string(number), std::to_string(timestamp)} : Answer{});
        number = 0;
        timestamp = 0;
    };
    answer(mt_getLastUniformMessageId(table, &number));
    answer(mt_getLastMessageId(table, 0, &number));
    answer(mt_getLastGoodMsgSeqNum(table, 0, &number, &timestamp));
    answer(mt_getFirstPendingMsgSeqNum(table, 0, &number));
    answer(mt_getLastPendingMsgSeqNum(table, 0, &number));
    for (const std::int32_t id : {1, 4, 6, 9, 99}) {
        UniformPlace place;
        const ErrorCode code = mt_findUniformId(table, id, &place);
        run.did(LOOKUP, code,
                code == NO_ERROR
                    ? Answer{std::to_string(place.offset), std::to_string(place.ordinal), std::to_string(place.skip)}
                    : Answer{});
    }
}

MessageListener idsInto(Answer* answer) {
    return {answer,
            [](void* owner, const MessageView& message, Visit*) {
                static_cast<Answer*>(owner)->push_back(std::to_string(message.metadata.uniformId));
                return NO_ERROR;
            },
            [](void* owner, ErrorCode code) {
                if (code == NO_ERROR) {
                    static_cast<Answer*>(owner)->push_back("end");
                }
                return code;
            }};
}

void readsById(ScenarioRun& run, MessageTable* table) {
    const std::vector<std::int32_t> ids = {2, 3, 5, 10, STORED, 500};
    for (const bool backward : {false, true, false, true}) {
        Answer answer;
        const MessageListener listener = idsInto(&answer);
        const ErrorCode code =
            mt_readMessages(table, ids.data(), static_cast<std::int32_t>(ids.size()), &listener, backward);
        run.did(READ_MESSAGES, code, answer);
    }
}

using Reading = void (*)(ScenarioRun&, MessageTable*);

ScenarioStep reads(OpenMode mode, Reading reading) {
    return [mode, reading](ScenarioRun& run) {
        const MessageTablePtr table = createTable(run.root(), run.shape);
        const Operation& opening = mode == OpenMode::read ? OPEN_FOR_READING : OPEN_FOR_WRITING;
        if (run.did(opening, mt_open(table.get(), mode))) {
            reading(run, table.get());
        }
    };
}

void verifyStored(ScenarioRun& run) {
    expectTableGoesOn(run, simpleMessages(1, STORED, run.shape));
}

// A reader has touched nothing.
ScenarioStep unchanged(const TableImage& image) {
    return [image](ScenarioRun& run) {
        EXPECT_EQ(difference(readFile(run.path()), image.bytes()), "") << "a reader has changed the table";
        verifyStored(run);
    };
}

// A table that is followed while a writer, which no fault hits, appends to it and closes two blocks.
ScenarioStep follows(const TableImage& grown, Reading reading) {
    return [grown, reading](ScenarioRun& run) {
        const MessageTablePtr table = createTable(run.root(), run.shape);
        const bool open = run.did(OPEN_FOR_READING, mt_open(table.get(), OpenMode::read));
        std::int32_t lastId = 0;
        ErrorCode code = open ? mt_getLastUniformMessageId(table.get(), &lastId) : NO_ERROR;
        patchFile(run.path(), 0, grown.bytes());
        if (open) {
            run.did(LOOKUP, code, code == NO_ERROR ? Answer{std::to_string(lastId)} : Answer{});
            for (int times = 0; times < 2; ++times) {
                code = mt_getLastUniformMessageId(table.get(), &lastId);
                run.did(LOOKUP, code, code == NO_ERROR ? Answer{std::to_string(lastId)} : Answer{});
            }
            reading(run, table.get());
        }
    };
}

// Reads the file in every way that a table file knows, and beyond its end, which may never pass for a success.
void readsTheFile(ScenarioRun& run) {
    TableFile* opened = nullptr;
    if (!run.did(OPEN_FILE, tableFileOpen(&opened, run.path().c_str(), OpenMode::read, nullptr))) {
        return;
    }
    const TableFilePtr file(opened);
    const std::int64_t size = tableFileCachedSize(opened);
    std::string bytes(static_cast<std::size_t>(size) + 1, ' ');
    const auto readTwice = [&](auto read) {
        for (int times = 0; times < 2; ++times) {
            bytes.assign(bytes.size(), ' ');
            const ErrorCode code = read();
            run.did(READ_FILE, code, code == NO_ERROR ? Answer{bytes} : Answer{});
        }
    };
    std::int64_t count = 0;
    const auto whole = [&](ErrorCode code) {
        EXPECT_TRUE(code != NO_ERROR || count == size) << "a short read passes for a success";
        return code;
    };
    readTwice([&] { return whole(tableFileReadAt(opened, 0, bytes.data(), size, &count)); });
    for (const std::int64_t length : {size, std::int64_t{100}}) {
        readTwice([&] {
            const ErrorCode code = tableFileSeekSet(opened, size - length);
            return code == NO_ERROR ? tableFileReadExact(opened, bytes.data(), length) : code;
        });
        readTwice([&] {
            const ErrorCode code = tableFileSeekSet(opened, size);
            return code == NO_ERROR ? tableFileReadBackward(opened, bytes.data(), length) : code;
        });
        EXPECT_EQ(tableFileSeekSet(opened, size - length), NO_ERROR);
        EXPECT_EQ(tableFileReadExact(opened, bytes.data(), length + 1), FILE_READ_ERROR) << "beyond the end";
        EXPECT_EQ(tableFileSeekSet(opened, size - length), NO_ERROR);
        EXPECT_EQ(tableFileReadChecked(opened, bytes.data(), length + 1), FILE_SIZE_ERROR) << "beyond the end";
    }
}

}  // namespace

std::vector<FaultScenario> readingScenarios() {
    const auto closed = [](const TableShape& shape) { return closedImage(shape, simpleMessages(1, STORED, shape)); };
    const TableImage table(smallShape(), closed);
    const TableImage large(largeFooterShape(), closed);
    const TableImage followed(smallShape(),
                              [](const TableShape& s) { return unclosedImage(s, simpleMessages(1, 3, s)); });
    const TableImage grown(smallShape(),
                           [](const TableShape& s) { return unclosedImage(s, simpleMessages(1, STORED, s)); });
    const auto placeFollowed = [followed, grown](ScenarioRun& run) {
        followed.place(run);
        grown.bytes();  // made before the fault is in force
    };
    return {
        {"ReadATableFile", placed(table), readsTheFile, unchanged(table)},
        {"WalkAsAReader", placed(table), reads(OpenMode::read, walks), unchanged(table)},
        {"WalkAsTheWriter", placed(table), reads(OpenMode::write, walks), verifyStored},
        {"QueryAsAReader", placed(table), reads(OpenMode::read, queries), unchanged(table)},
        {"QueryAsTheWriter", placed(table), reads(OpenMode::write, queries), verifyStored},
        {"QueryLargeFooters", placed(large), reads(OpenMode::read, queries), unchanged(large)},
        {"LookUpAsAReader", placed(table), reads(OpenMode::read, lookups), unchanged(table)},
        {"LookUpAsTheWriter", placed(table), reads(OpenMode::write, lookups), verifyStored},
        {"ReadMessagesAsAReader", placed(table), reads(OpenMode::read, readsById), unchanged(table)},
        {"ReadMessagesAsTheWriter", placed(table), reads(OpenMode::write, readsById), verifyStored},
        {"RefreshAndLookUp", placeFollowed, follows(grown, lookups), unchanged(grown)},
        {"RefreshAndQuery", placeFollowed, follows(grown, queries), unchanged(grown)},
    };
}

}  // namespace tabulo::internal::test
