// The lookups of a message table as questions.
#include <algorithm>

#include "messagetable/message_lookup.h"
#include "tests/damage/damage_messages.h"
#include "tests/damage/table_questions.h"

namespace tabulo::internal::test {

namespace {

std::int32_t classOf(std::int32_t id) {
    std::int32_t found = -1;
    for (std::int32_t c = 0; c < 5; ++c) {
        if (id >= CLASS_BASES[c] && (found < 0 || CLASS_BASES[c] > CLASS_BASES[found])) {
            found = c;
        }
    }
    return found;
}

// What the lookups go by, kept message by message in the words of the rules.
struct PlainIndexes {
    std::int64_t highest[5] = {-1, -1, -1, -1, -1};
    std::int64_t lastUniform = 0;
    std::int64_t firstPending = 0;
    std::int64_t lastPending = 0;
    std::int64_t lastGood = 0;

    void add(const MessageMetadata& message) {
        const std::int32_t c = classOf(message.connMsgId);
        highest[c] = std::max<std::int64_t>(highest[c], message.connMsgId);
        lastUniform = message.uniformId;
        if (message.seqNum > 0 && message.prevSeqNum != 0 && c == APP_TO_CLASS && message.isPossDupFlag == 0) {
            firstPending = message.prevSeqNum;
        }
        if (message.seqNum < 0 && message.isOutOfSequence == 0 && c == APP_TO_CLASS) {
            lastPending = message.seqNum;
        }
        if (message.seqNum > 0 && message.isOutOfSequence == 0 && c != RESENT_CLASS) {
            lastGood = message.seqNum;
        }
    }
};

using Lookup = std::function<ErrorCode(MessageTable*, std::int32_t*)>;

Question lookupQuestion(const std::string& name, const std::vector<Message>& known, const Lookup& lookup,
                        const std::function<std::int64_t(const PlainIndexes&)>& value) {
    const auto ask = [lookup](MessageTable* table) {
        Answer answer;
        std::int32_t found = 0;
        answer.code = lookup(table, &found);
        if (answer.code == NO_ERROR) {
            answer.values.push_back(found);
        }
        return answer;
    };
    const auto rightAnswer = [&known, value](const std::vector<std::int64_t>& present) {
        PlainIndexes indexes;
        for (const std::int64_t number : present) {
            indexes.add(known[static_cast<std::size_t>(number - 1)].metadata);
        }
        return std::vector<std::int64_t>{value(indexes)};
    };
    return {name, ask, false, rightAnswer};
}

}  // namespace

std::vector<Question> lookupQuestions(const std::vector<Message>& known) {
    std::vector<Question> questions;
    for (std::int32_t c = 0; c < 5; ++c) {
        questions.push_back(lookupQuestion(
            "the last id of class " + std::to_string(c), known,
            [c](MessageTable* table, std::int32_t* id) { return mt_getLastMessageId(table, CLASS_BASES[c], id); },
            [c](const PlainIndexes& indexes) {
                return indexes.highest[c] < 0 ? std::int64_t{CLASS_BASES[c]} : indexes.highest[c];
            }));
    }
    questions.push_back(lookupQuestion(
        "the last good sequence number", known,
        [](MessageTable* table, std::int32_t* number) {
            std::int64_t time = 0;
            return mt_getLastGoodMsgSeqNum(table, 0, number, &time);
        },
        [](const PlainIndexes& indexes) { return indexes.lastGood; }));
    questions.push_back(lookupQuestion(
        "the first pending sequence number", known,
        [](MessageTable* table, std::int32_t* number) { return mt_getFirstPendingMsgSeqNum(table, 0, number); },
        [](const PlainIndexes& indexes) { return indexes.firstPending - 1; }));
    questions.push_back(lookupQuestion(
        "the last pending sequence number", known,
        [](MessageTable* table, std::int32_t* number) { return mt_getLastPendingMsgSeqNum(table, 0, number); },
        [](const PlainIndexes& indexes) { return indexes.lastPending; }));
    questions.push_back(lookupQuestion(
        "the last uniform id", known,
        [](MessageTable* table, std::int32_t* id) { return mt_getLastUniformMessageId(table, id); },
        [](const PlainIndexes& indexes) { return indexes.lastUniform; }));
    return questions;
}

}  // namespace tabulo::internal::test
