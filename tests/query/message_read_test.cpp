#include "query/message_read.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

using Ids = std::vector<std::int32_t>;
using Events = std::vector<std::string>;

std::string endEvent(ErrorCode code) {
    return code == NO_ERROR ? "end" : std::string("end: ") + getErrorMessage(code);
}

// A listener that fills a record; the end of the walk is the event "end", with what the walk came to, if not NO_ERROR.
// It gives the walk's own code unless the record has a failure for it.
MessageListener listenerOf(WalkRecord* record) {
    return {record, record->visitor().onMessage, [](void* owner, ErrorCode code) {
                auto* ended = static_cast<WalkRecord*>(owner);
                ended->events.push_back(endEvent(code));
                const auto failure = ended->failures.find(ended->events.back());
                return failure == ended->failures.end() ? code : failure->second;
            }};
}

class ReadById : public TableImageTest {
  protected:
    void read(const Bytes& bytes) {
        place(bytes);
        open(OpenMode::read);
        ASSERT_NE(table, nullptr);
        record = WalkRecord{};
    }
    // The code of reading; the record holds what the listener got.
    ErrorCode readIds(const Ids& ids, bool backward = false) {
        record.events.clear();
        record.messages.clear();
        const MessageListener listener = listenerOf(&record);
        return mt_readMessages(table.get(), ids.data(), static_cast<std::int32_t>(ids.size()), &listener, backward);
    }
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }

    WalkRecord record;
};

TEST_F(ReadById, DeliversExactlyTheRequestedIdsInFileOrder) {
    shape.numericNames = {"Price"};
    read(closed(14));
    EXPECT_EQ(readIds({13, 2, 7}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 7", "message 13", "end"}));
    const std::vector<Message> expected = {simpleMessage(2, shape), simpleMessage(7, shape), simpleMessage(13, shape)};
    EXPECT_EQ(record.messages, expected);
}

TEST_F(ReadById, DeliversInReverseWhenItReadsBackward) {
    read(closed(14));
    EXPECT_EQ(readIds({2, 13, 7}, true), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 13", "message 7", "message 2", "end"}));
}

TEST_F(ReadById, IdsBetweenTheBoundsThatWereNotAskedForAreLeftOut) {
    read(closed(14));
    EXPECT_EQ(readIds({1, 14}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 1", "message 14", "end"}));
}

TEST_F(ReadById, AnIdGivenTwiceDeliversItsMessagesOnce) {
    read(closed(6));
    EXPECT_EQ(readIds({5, 5, 3, 5}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 3", "message 5", "end"}));
}

TEST_F(ReadById, AnIdThatSeveralMessagesHaveDeliversAllOfThem) {
    std::vector<Message> messages = simpleMessages(1, 10, shape);
    for (const std::size_t i : {std::size_t{1}, std::size_t{4}, std::size_t{9}}) {
        messages[i].metadata.connMsgId = 1700000000;
    }
    read(closedImage(shape, messages));
    EXPECT_EQ(readIds({1700000000}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 5", "message 10", "end"}));
}

TEST_F(ReadById, IdsOfAllClassesAtTheirLimitsAreFound) {
    const Ids limits = {0,          536870910,  536870911,  1073741822, 1073741823,
                        1342177278, 1342177279, 1610612734, 1610612735, 2147483647};
    std::vector<Message> messages;
    for (const std::int32_t id : limits) {
        messages.push_back(simpleMessage(static_cast<std::int32_t>(messages.size()) + 1, shape));
        messages.back().metadata.connMsgId = id;
    }
    read(closedImage(shape, messages));
    EXPECT_EQ(readIds(limits), NO_ERROR);
    EXPECT_EQ(record.messages, messages);
    for (std::size_t i = 0; i < limits.size(); ++i) {
        EXPECT_EQ(readIds({limits[i]}), NO_ERROR);
        EXPECT_EQ(record.messages, std::vector<Message>{messages[i]});
    }
}

TEST_F(ReadById, IdsWithoutAClassDeliverNothing) {
    std::vector<Message> messages = simpleMessages(1, 6, shape);
    messages[2].metadata.connMsgId = -5;
    read(closedImage(shape, messages));
    EXPECT_EQ(readIds({-5, -1, std::numeric_limits<std::int32_t>::min()}), NO_ERROR);
    EXPECT_EQ(record.events, Events{"end"});
    EXPECT_EQ(readIds({-5, 4}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 4", "end"}));
}

TEST_F(ReadById, WithoutIdsOnlyTheEndIsTold) {
    read(closed(6));
    EXPECT_EQ(readIds({}), NO_ERROR);
    EXPECT_EQ(record.events, Events{"end"});
    const MessageListener listener = listenerOf(&record);
    EXPECT_EQ(mt_readMessages(table.get(), nullptr, 0, &listener, false), NO_ERROR);
}

TEST_F(ReadById, InATableWithoutMessagesOnlyTheEndIsTold) {
    read(closed(0));
    EXPECT_EQ(readIds({1}), NO_ERROR);
    EXPECT_EQ(record.events, Events{"end"});
    EXPECT_EQ(readIds({1}, true), NO_ERROR);
    EXPECT_EQ(record.events, Events{"end"});
}

TEST_F(ReadById, AListenerThatStopsGetsNoFurtherCall) {
    read(closed(14));
    record.answers["message 7"] = Visit::stop;
    EXPECT_EQ(readIds({2, 7, 13}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 7"})) << "not even the end of the data";
    EXPECT_EQ(readIds({2, 7, 13}, true), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 13", "message 7"}));
}

TEST_F(ReadById, AListenersErrorIsTheResultAndItsLastCall) {
    read(closed(14));
    record.failures["message 7"] = JNI_ERROR;
    EXPECT_EQ(readIds({2, 7, 13}), JNI_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 7"}));
    record.failures = {{"end", JNI_ERROR}};
    EXPECT_EQ(readIds({2}), JNI_ERROR) << "the code of the end-of-data call";
}

TEST_F(ReadById, WhatIsMissingIsNamed) {
    read(closed(6));
    const MessageListener listener = listenerOf(&record);
    const MessageListener none;
    const MessageListener noMessage{&record, nullptr, listener.onEnd};
    const MessageListener noEnd{&record, listener.onMessage, nullptr};
    const std::int32_t id = 1;
    EXPECT_EQ(mt_readMessages(nullptr, &id, 1, &listener, false), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_readMessages(table.get(), nullptr, 1, &listener, false), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_readMessages(table.get(), &id, 1, nullptr, false), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_readMessages(table.get(), &id, 1, &none, false), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_readMessages(table.get(), &id, 1, &noMessage, false), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_readMessages(table.get(), &id, 1, &noEnd, false), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_readMessages(table.get(), &id, -1, &listener, false), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(record.events, Events{});
}

TEST_F(ReadById, WithoutAMasterFileIsRefused) {
    table = createTable(directory.root(), shape);
    EXPECT_EQ(readIds({1}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(readIds({1}, true), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(record.events, Events{});
}

TEST_F(ReadById, BlocksThatCannotHoldAnIdAreSkippedByTheirFooters) {
    const TableMap places = map(14);
    read(closed(14));
    for (const bool backward : {false, true}) {
        FaultPlatform platform;
        EXPECT_EQ(readIds({6, 8}, backward), NO_ERROR);
        EXPECT_EQ(record.messages.size(), 2U);
        for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
            const auto position = static_cast<std::size_t>(call.offset);
            const bool inFirst = position >= places.frame(1).start && position < places.frame(4).end;
            const bool inThird = position >= places.frame(9).start && position < places.frame(12).end;
            EXPECT_FALSE(inFirst || inThird) << call.length << " bytes at " << call.offset;
        }
    }
}

TEST_F(ReadById, AReaderSeesWhatAWriterWroteSince) {
    open(OpenMode::create);
    const MessageTablePtr writer = std::move(table);
    table = openTable(directory.root(), OpenMode::read, shape);
    for (std::int32_t n = 1; n <= 10; ++n) {
        ASSERT_EQ(writeSimpleMessages(writer.get(), n, n, shape), NO_ERROR);
        EXPECT_EQ(readIds({n, 1}), NO_ERROR);
        EXPECT_EQ(record.messages.size(), n == 1 ? 1U : 2U) << "message " << n;
        EXPECT_EQ(readIds({n, 1}, true), NO_ERROR);
        EXPECT_EQ(record.messages.front(), simpleMessage(n, shape)) << "message " << n;
    }
}

TEST_F(ReadById, OnAWritersHandleFindsItsMessagesAndDoesNotMoveItsPlace) {
    open(OpenMode::create);
    for (std::int32_t n = 1; n <= 10; ++n) {
        ASSERT_EQ(writeSimple(n, n), NO_ERROR);
        EXPECT_EQ(readIds({n}, n % 2 == 0), NO_ERROR);
        EXPECT_EQ(record.messages, std::vector<Message>{simpleMessage(n, shape)});
    }
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(10)), "");
}

TEST_F(ReadById, AListenerMayDestroyTheTable) {
    for (const Visit answer : {Visit::goOn, Visit::stop}) {
        read(closed(10));
        record.answers["message 6"] = answer;
        record.onMessage = [&] {
            if (record.events.back() == "message 6") {
                mt_destroy(table.release());
            }
        };
        EXPECT_EQ(readIds({2, 6, 9}), answer == Visit::stop ? NO_ERROR : MASTER_INACTIVE_ERROR);
        EXPECT_EQ(record.events, (Events{"message 2", "message 6"})) << "no call behind the destruction";
    }
}

TEST_F(ReadById, AListenerMayDropTheTable) {
    for (const bool backward : {false, true}) {
        place(closed(10));
        open(OpenMode::write);
        record = WalkRecord{};
        record.onMessage = [&] {
            if (record.events.back() == "message 6") {
                EXPECT_EQ(mt_drop(table.get()), NO_ERROR);
                EXPECT_EQ(writeSimple(1, 14), NO_ERROR);
            }
        };
        EXPECT_EQ(readIds({2, 6, 9}, backward), NO_ERROR);
        EXPECT_EQ(std::count(record.events.begin(), record.events.end(), backward ? "message 2" : "message 9"), 0)
            << "a message of the new table was delivered";
        ASSERT_EQ(closeTable(table), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), closed(14)), "");
    }
}

TEST_F(ReadById, AListenerMayReadOnItsOwn) {
    read(closed(10));
    WalkRecord inner;
    record.onMessage = [&] {
        const std::int32_t id = 9;
        const MessageListener listener = listenerOf(&inner);
        EXPECT_EQ(mt_readMessages(table.get(), &id, 1, &listener, true), NO_ERROR);
    };
    EXPECT_EQ(readIds({2, 6, 10}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 6", "message 10", "end"}));
    EXPECT_EQ(inner.events.size(), 6U);
    const std::vector<Message> expected = {simpleMessage(2, shape), simpleMessage(6, shape), simpleMessage(10, shape)};
    EXPECT_EQ(record.messages, expected);
}

TEST_F(ReadById, MessagesInFrontOfDamageAreDeliveredBeforeItsCode) {
    Bytes bytes = closed(10);
    bytes[map(10).openBlockStart - 1] ^= 0x01;  // the second block's trailing length
    putU64(&bytes, map(10).storedLastBlockEnd(), map(10).blockStarts[1]);
    read(bytes);
    EXPECT_EQ(readIds({2, 6, 9}), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", endEvent(HEADER_CORRUPTED_ERROR)}))
        << "the walk's end tells its code";
    record.failures[endEvent(HEADER_CORRUPTED_ERROR)] = JNI_ERROR;
    EXPECT_EQ(readIds({2, 6, 9}), JNI_ERROR) << "the listener's end has the last word";
}

TEST_F(ReadById, ADamagedFrameOfTheOpenBlockIsToldBehindTheMessagesBeforeIt) {
    Bytes bytes = closed(7);
    putU32(&bytes, map(7).frame(6).end - 4, 1);
    read(bytes);
    EXPECT_EQ(readIds({2, 5, 7}), CONSISTENCY_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 5", endEvent(CONSISTENCY_ERROR)}));
}

TEST_F(ReadById, ATornTailIsTheEndOfTheData) {
    read(cutAt(closed(7), map(7).dataEnd - 5));
    EXPECT_EQ(readIds({2, 6, 7}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 6", "end"}));
    EXPECT_EQ(readIds({2, 6, 7}, true), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"message 6", "message 2", "end"}));
}

TEST_F(ReadById, ARefusedReadIsReturned) {
    read(closed(10));
    int reads = 0;
    {
        FaultPlatform platform;
        EXPECT_EQ(readIds({2, 9}), NO_ERROR);
        reads = platform.count(FileCall::readAt);
    }
    for (int n = 1; n <= reads; ++n) {
        open(OpenMode::read);
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(readIds({2, 9}), FILE_READ_ERROR) << "read " << n;
        EXPECT_EQ(std::count(record.events.begin(), record.events.end(), "end"), 0);
        EXPECT_TRUE(record.events.empty() || record.events.back() == endEvent(FILE_READ_ERROR)) << "read " << n;
        table.reset();
    }
}

// What a listener has got, counted: it takes no memory.
struct Calls {
    int messages = 0;
    int ends = 0;

    MessageListener listener() {
        return {this,
                [](void* owner, const MessageView&, Visit*) {
                    static_cast<Calls*>(owner)->messages += 1;
                    return NO_ERROR;
                },
                [](void* owner, ErrorCode code) {
                    static_cast<Calls*>(owner)->ends += 1;
                    return code;
                }};
    }
};

TEST_F(ReadById, WithoutMemoryForOneOfItsAllocationsItTellsSoOrDeliversAll) {
    place(closed(10));
    const std::int32_t ids[] = {2, 9};
    for (const bool backward : {false, true}) {
        int refused = 0;
        bool happened = true;
        for (int n = 1; happened; ++n) {
            open(OpenMode::read);  // else a read finds what the one before has made
            Calls calls;
            const MessageListener listener = calls.listener();
            ErrorCode code = NO_ERROR;
            {
                const AllocationFailure failure(n);
                code = mt_readMessages(table.get(), ids, 2, &listener, backward);
                happened = failure.happened();
            }
            const bool isAll = code == NO_ERROR && calls.messages == 2 && calls.ends == 1;
            const bool isTold = code == OUT_OF_MEMORY_ERROR && happened;
            EXPECT_TRUE(isAll || isTold) << "without allocation " << n << (backward ? " backward" : " forward")
                                         << " the code is " << code << ", with " << calls.messages
                                         << " of 2 messages and the end told " << calls.ends << " times";
            refused += isTold ? 1 : 0;
        }
        EXPECT_GT(refused, 1) << "the ids and the reader take memory";
    }
}

}  // namespace
}  // namespace tabulo::internal::test
