// The operations of a model run that read.
#include <algorithm>

#include "index/uniform_lookup.h"
#include "query/message_read.h"
#include "tests/model/model_run.h"
#include "tests/query/random_query.h"

namespace tabulo::internal::test {

PlainQuery ModelRun::someQuery() {
    for (;;) {
        const PlainQuery query = randomQuery(random_, pool_);
        // Those depend on how much of the table is closed.
        if (!plainQuery_leavesOutClosedBlocks(query)) {
            return query;
        }
    }
}

std::vector<std::size_t> ModelRun::selected(const PlainQuery& query) const {
    std::vector<std::size_t> indexes;
    for (std::size_t i = 0; i < model_.size(); ++i) {
        if (plainQuery_selects(query, model_.messages()[i])) {
            indexes.push_back(i);
        }
    }
    return indexes;
}

void ModelRun::query() {
    Handle& handle = someHandle();
    const PlainQuery query = someQuery();
    const bool backward = random_->percent(50);
    SCOPED_TRACE(std::string(handle.writes ? "on the writer, " : "on a reader, ") + (backward ? "backward, " : "") +
                 plainQuery_text(query));
    std::vector<std::size_t> expected = selected(query);
    if (backward) {
        std::reverse(expected.begin(), expected.end());
    }
    const MessageTableIteratorPtr iterator =
        tabulo::internal::test::openIterator(handle.table.get(), plainQuery_conditions(query, backward));
    ASSERT_NE(iterator, nullptr);
    for (std::size_t found = 0;; ++found) {
        bool end = false;
        ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
        if (end) {
            EXPECT_EQ(found, expected.size()) << "matches are missing";
            return;
        }
        ASSERT_LT(found, expected.size()) << "one match too many";
        ASSERT_TRUE(isCurrent(iterator.get(), model_.messages()[expected[found]]))
            << "match " << found << " should be message " << expected[found];
    }
}

void ModelRun::openIterator() {
    Handle& handle = someHandle();
    if (handle.iterators.size() == 3) {
        handle.iterators.erase(handle.iterators.begin() + random_->below(3));
    }
    KeptIterator kept;
    kept.query = random_->percent(40) ? PlainQuery{} : someQuery();
    kept.backward = random_->percent(40);
    kept.iterator =
        tabulo::internal::test::openIterator(handle.table.get(), plainQuery_conditions(kept.query, kept.backward));
    ASSERT_NE(kept.iterator, nullptr);
    handle.iterators.push_back(std::move(kept));
}

void ModelRun::advanceIterator() {
    Handle& handle = someHandle();
    if (handle.iterators.empty()) {
        return;
    }
    KeptIterator& kept = handle.iterators[random_->bits() % handle.iterators.size()];
    SCOPED_TRACE(std::string("a kept iterator ") + (handle.writes ? "of the writer, " : "of a reader, ") +
                 (kept.backward ? "backward, " : "forward, ") + "at " + std::to_string(kept.place) + ", " +
                 plainQuery_text(kept.query));
    for (std::int32_t k = random_->between(1, random_->percent(70) ? 5 : 500); k > 0; --k) {
        if (nextEnds(&kept) || ::testing::Test::HasFailure()) {
            return;
        }
    }
}

// One step, compared with the model. True at the end.
bool ModelRun::nextEnds(KeptIterator* kept) {
    const std::vector<Message>& messages = model_.messages();
    if (kept->backward && !kept->started) {
        kept->place = messages.size();
    }
    kept->started = true;
    const Message* expected = nullptr;
    while (expected == nullptr && (kept->backward ? kept->place > 0 : kept->place < messages.size())) {
        const Message& message = messages[kept->backward ? kept->place - 1 : kept->place];
        kept->place = kept->backward ? kept->place - 1 : kept->place + 1;
        expected = plainQuery_selects(kept->query, message) ? &message : nullptr;
    }
    bool end = false;
    const ErrorCode code = mtIterator_next(kept->iterator.get(), &end);
    EXPECT_EQ(code, NO_ERROR);
    EXPECT_EQ(end, expected == nullptr) << (end ? "a match is missing" : "a match too many");
    if (code == NO_ERROR && !end && expected != nullptr) {
        EXPECT_TRUE(isCurrent(kept->iterator.get(), *expected)) << "it should be at another message";
    }
    return end || code != NO_ERROR;
}

// The table was dropped or opened anew through this very object: its iterators have ended for good.
void ModelRun::endOwnIterators(Handle* handle) {
    for (KeptIterator& kept : handle->iterators) {
        bool end = false;
        EXPECT_EQ(mtIterator_next(kept.iterator.get(), &end), NO_ERROR);
        EXPECT_TRUE(end) << "the iterator's table is gone";
    }
    handle->iterators.clear();
}

// The file became shorter behind the readers' backs. With only its header left an iterator may hand on what it had read
// already, and then ends; otherwise it cannot tell, and is not asked.
void ModelRun::dropForeignIterators(bool fileIsHeaderOnly) {
    for (const std::unique_ptr<Handle>& reader : readers_) {
        for (KeptIterator& kept : reader->iterators) {
            std::vector<std::size_t> rest = selected(kept.query);
            std::erase_if(rest, [&kept](std::size_t i) {
                return kept.backward ? kept.started && i >= kept.place : i < kept.place;
            });
            if (kept.backward) {
                std::reverse(rest.begin(), rest.end());
            }
            bool end = !fileIsHeaderOnly;
            for (std::size_t found = 0; !end; ++found) {
                ASSERT_EQ(mtIterator_next(kept.iterator.get(), &end), NO_ERROR);
                ASSERT_TRUE(end || found < rest.size()) << "a dropped table has no more messages";
                ASSERT_TRUE(end || isCurrent(kept.iterator.get(), model_.messages()[rest[found]]))
                    << "not the next message of the table that was dropped";
            }
        }
        reader->iterators.clear();
    }
}

namespace {

// What a listener received, and when it asks to stop.
struct Heard {
    std::vector<std::int32_t> uniformIds;
    std::vector<std::int32_t> connMsgIds;
    std::vector<std::int64_t> timestamps;
    int ends = 0;
    std::size_t stopAt = 0;
};

MessageListener listenerOf(Heard* heard) {
    return {heard,
            [](void* owner, const MessageView& message, Visit* answer) {
                auto* self = static_cast<Heard*>(owner);
                self->uniformIds.push_back(message.metadata.uniformId);
                self->connMsgIds.push_back(message.metadata.connMsgId);
                self->timestamps.push_back(message.metadata.timestamp);
                *answer = self->uniformIds.size() == self->stopAt ? Visit::stop : Visit::goOn;
                return NO_ERROR;
            },
            [](void* owner, ErrorCode code) {
                static_cast<Heard*>(owner)->ends += 1;
                return code;
            }};
}

}  // namespace

void ModelRun::readMessages() {
    std::vector<std::int32_t> ids;
    for (std::int32_t k = random_->below(7); k > 0; --k) {
        const std::int32_t known = random_->of(pool_.messages).metadata.connMsgId;
        ids.push_back(random_->percent(80) ? known : static_cast<std::int32_t>(random_->bits()));
    }
    const bool backward = random_->percent(50);
    Heard heard;
    heard.stopAt = random_->percent(25) ? static_cast<std::size_t>(random_->between(1, 5)) : 0;
    Heard expected;
    std::vector<Message> messages = model_.messages();
    if (backward) {
        std::reverse(messages.begin(), messages.end());
    }
    for (const Message& message : messages) {
        const MessageMetadata& metadata = message.metadata;
        if (metadata.connMsgId < 0 || std::find(ids.begin(), ids.end(), metadata.connMsgId) == ids.end()) {
            continue;
        }
        if (heard.stopAt == 0 || expected.uniformIds.size() < heard.stopAt) {
            expected.uniformIds.push_back(metadata.uniformId);
            expected.connMsgIds.push_back(metadata.connMsgId);
            expected.timestamps.push_back(metadata.timestamp);
        }
    }
    const bool stopped = heard.stopAt != 0 && expected.uniformIds.size() == heard.stopAt;
    Handle& handle = someHandle();
    SCOPED_TRACE(std::string(backward ? "backward, " : "forward, ") +
                 (handle.writes ? "on the writer" : "on a reader") + ", ids " + ::testing::PrintToString(ids) +
                 ", stop at " + std::to_string(heard.stopAt));
    const MessageListener listener = listenerOf(&heard);
    EXPECT_EQ(
        mt_readMessages(handle.table.get(), ids.data(), static_cast<std::int32_t>(ids.size()), &listener, backward),
        NO_ERROR);
    EXPECT_EQ(heard.uniformIds, expected.uniformIds);
    EXPECT_EQ(heard.connMsgIds, expected.connMsgIds);
    EXPECT_EQ(heard.timestamps, expected.timestamps);
    EXPECT_EQ(heard.ends, stopped ? 0 : 1) << "the end is told once, and not after a stop";
}

void ModelRun::findUniformId() {
    const std::int32_t known = random_->of(pool_.messages).metadata.uniformId;
    const std::int32_t id =
        random_->percent(90) ? known + random_->between(-1, 1) : static_cast<std::int32_t>(random_->bits());
    std::size_t index = 0;
    while (index < model_.size() && model_.messages()[index].metadata.uniformId < id) {
        index += 1;
    }
    const bool atBlockStart = index % static_cast<std::size_t>(model_.layout().messagesPerBlock) == 0;
    std::int64_t place = model_.openBlockStart();
    if (index < model_.size()) {
        place = model_.frameStart(index) - (atBlockStart ? 8 : 0);
    } else if (!atBlockStart) {
        place = model_.frameEnd(index - 1);
    }
    UniformPlace found{-1, -1, -1};
    Handle& handle = someHandle();
    SCOPED_TRACE("uniform id " + std::to_string(id) + (handle.writes ? " on the writer" : " on a reader"));
    EXPECT_EQ(mt_findUniformId(handle.table.get(), id, &found), NO_ERROR);
    EXPECT_EQ(found.offset, place);
    EXPECT_EQ(found.ordinal, static_cast<std::int64_t>(index));
    EXPECT_EQ(found.skip, atBlockStart ? 8 : 0);
}

}  // namespace tabulo::internal::test
