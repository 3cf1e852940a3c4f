#include "tests/damage/table_questions.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "messagetable/message_lookup.h"
#include "messagetable/table_walk.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/damage/table_queries.h"
#include "tests/support/current_message.h"
#include "tests/support/message_takers.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::test {

namespace {

// Reads every byte of a text, so that a sanitizer sees one that is not there.
bool sameText(const std::optional<std::string>& expected, const StringField& field) {
    const std::string_view bytes = stringField_bytes(field);
    if (expected && bytes == *expected) {
        return true;
    }
    volatile char sink = 0;
    for (const char character : bytes) {
        sink = character;
    }
    static_cast<void>(sink);
    return !expected && field.length == 0;
}

bool sameNumber(const NumericValue& left, const NumericValue& right) {
    return left.type == right.type && (left.type == NumericType::absent || left.longValue == right.longValue);
}

bool sameMetadata(const MessageMetadata& left, const MessageMetadata& right) {
    return left.uniformId == right.uniformId && left.seqNum == right.seqNum && left.prevSeqNum == right.prevSeqNum &&
           left.connMsgId == right.connMsgId && left.timestamp == right.timestamp && left.msgType == right.msgType &&
           left.isPossDupFlag == right.isPossDupFlag && left.isOutOfSequence == right.isOutOfSequence;
}

// Tells delivered messages by the known ones, and gathers their numbers.
struct Collector {
    const std::vector<Message>* known = nullptr;
    Answer answer;

    // False when no more should come.
    bool take(const MessageView& taken) {
        const auto number = static_cast<std::int64_t>(taken.metadata.uniformId);
        bool same = number >= 1 && number <= static_cast<std::int64_t>(known->size());
        static const Message nothing;
        static const std::optional<std::string> absent;
        const Message& message = same ? (*known)[static_cast<std::size_t>(number - 1)] : nothing;
        same = same && sameMetadata(message.metadata, taken.metadata) && message.strings.size() == taken.texts.size() &&
               message.numbers.size() == taken.numbers.size();
        for (std::size_t i = 0; i < taken.texts.size(); ++i) {
            same &= sameText(i < message.strings.size() ? message.strings[i] : absent, taken.texts[i]);
        }
        for (std::size_t i = 0; same && i < taken.numbers.size(); ++i) {
            same = sameNumber(message.numbers[i], taken.numbers[i]);
        }
        answer.values.push_back(same ? number : FOREIGN_MESSAGE);
        return !isEndless();
    }
    bool isEndless() {
        const bool endless = answer.values.size() > 4 * known->size();
        if (endless) {
            answer.values.push_back(NO_END);
        }
        return endless;
    }
};

Answer askWalk(MessageTable* table, const std::vector<Message>& known, bool backward) {
    Collector collector{&known, {}};
    ErrorCode code = mt_refresh(table);
    // As the table's own reading does: a damaged frame of the open block is told by the walk, behind what is before it.
    if (code == NO_ERROR || code == CONSISTENCY_ERROR) {
        const BlockReaderPtr frames(mfr_createReader(table->storage.get(), table->header.layout));
        const auto take = [&](const MessageView& message) {
            return collector.take(message) ? Visit::goOn : Visit::stop;
        };
        if (frames == nullptr) {
            code = OUT_OF_MEMORY_ERROR;
        } else {
            code = backward ? mfr_readBackward(frames.get(), mt_openBlockStart(table), visitorOf(&take))
                            : mfr_readForward(frames.get(), table->storage->headerSize, visitorOf(&take));
        }
    }
    collector.answer.code = code;
    return collector.answer;
}

using SetConditions = std::function<void(QueryConditions*)>;

Answer askQuery(MessageTable* table, const std::vector<Message>& known, const SetConditions& set, bool backward) {
    Collector collector{&known, {}};
    QueryConditionsPtr conditions(conditions_create());
    EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
    set(conditions.get());
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions.release()));
    if (iterator == nullptr) {
        collector.answer.code = NULL_POINTER_ERROR;  // the refresh of a backward iterator failed
        return collector.answer;
    }
    for (;;) {
        bool end = false;
        collector.answer.code = mtIterator_next(iterator.get(), &end);
        if (collector.answer.code != NO_ERROR || end) {
            return collector.answer;
        }
        if (!collector.take(currentMessage(iterator.get()))) {
            return collector.answer;
        }
    }
}

Answer askByIds(MessageTable* table, const std::vector<Message>& known, const std::vector<std::int32_t>& ids,
                bool backward) {
    Collector collector{&known, {}};
    const auto take = [&](const MessageView& message) { return collector.take(message) ? Visit::goOn : Visit::stop; };
    const MessageListener listener = listenerOf(&take);
    collector.answer.code =
        mt_readMessages(table, ids.data(), static_cast<std::int32_t>(ids.size()), &listener, backward);
    return collector.answer;
}

Collector* watching = nullptr;

void refusePause(std::int64_t) {
    watching->answer.values.push_back(NO_END);  // the first pass without a message has asked the watch to stop
}

Answer askWatch(MessageTable* table, const std::vector<Message>& known, std::int32_t startingId) {
    Collector collector{&known, {}};
    MessageWatcher* watcher = messageWatcher_create(&table, 1);
    if (watcher == nullptr) {
        collector.answer.code = OUT_OF_MEMORY_ERROR;
        return collector.answer;
    }
    watcher->pause = refusePause;
    watching = &collector;
    const auto take = [&](const MessageView& message, std::int32_t) { return collector.take(message); };
    collector.answer.code = messageWatcher_startWatching(watcher, 1, &startingId, watchListenerOf(&take));
    watching = nullptr;
    messageWatcher_destroy(watcher);
    return collector.answer;
}

using Selects = std::function<bool(const Message&)>;

Question listQuestion(const std::string& name, const std::vector<Message>& known, const Selects& selects, bool backward,
                      std::function<Answer(MessageTable*)> ask) {
    const auto rightAnswer = [&known, selects, backward](const std::vector<std::int64_t>& present) {
        std::vector<std::int64_t> right;
        std::copy_if(present.begin(), present.end(), std::back_inserter(right),
                     [&](std::int64_t number) { return selects(known[static_cast<std::size_t>(number - 1)]); });
        if (backward) {
            std::reverse(right.begin(), right.end());
        }
        return right;
    };
    return {name + (backward ? ", backward" : ", forward"), std::move(ask), backward, rightAnswer};
}

void addReads(const std::vector<Message>& known, bool backward, std::vector<Question>* questions) {
    // The ids of some messages, and of none.
    std::vector<std::int32_t> ids{1, 77};
    for (const Message& message : known) {
        if (message.metadata.uniformId % 3 == 2) {
            ids.push_back(message.metadata.connMsgId);
        }
    }
    questions->push_back(listQuestion(
        "reading by ids", known,
        [ids](const Message& message) {
            return std::find(ids.begin(), ids.end(), message.metadata.connMsgId) != ids.end();
        },
        backward, [&known, ids, backward](MessageTable* table) { return askByIds(table, known, ids, backward); }));
}

}  // namespace

std::vector<Question> tableQuestions(const std::vector<Message>& known) {
    std::vector<Question> questions;
    const Selects everything = [](const Message&) { return true; };
    for (const bool backward : {false, true}) {
        questions.push_back(
            listQuestion("a walk", known, everything, backward,
                         [&known, backward](MessageTable* table) { return askWalk(table, known, backward); }));
    }
    for (const TableQuery& query : tableQueries()) {
        for (const bool backward : {false, true}) {
            const auto ask = [&known, set = query.set, backward](MessageTable* table) {
                return askQuery(table, known, set, backward);
            };
            questions.push_back(listQuestion(query.name, known, query.selects, backward, ask));
        }
    }
    addReads(known, false, &questions);
    addReads(known, true, &questions);
    for (const std::int32_t startingId : {1, 7}) {
        questions.push_back(listQuestion(
            "watching from " + std::to_string(startingId), known,
            [startingId](const Message& message) { return message.metadata.uniformId >= startingId; }, false,
            [&known, startingId](MessageTable* table) { return askWatch(table, known, startingId); }));
    }
    for (const Question& question : lookupQuestions(known)) {
        questions.push_back(question);
    }
    return questions;
}

}  // namespace tabulo::internal::test
