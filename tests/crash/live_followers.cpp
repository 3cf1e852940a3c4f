// The processes that follow the writer of live_tables.h.
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/crash/live_tables.h"
#include "tests/support/current_message.h"
#include "tests/support/message_takers.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::test {

namespace {

using namespace std::chrono_literals;

constexpr auto LONGEST = 90s;
constexpr std::int64_t WALK_EVERY = 8;
constexpr std::int64_t OPEN_EVERY = 100;
constexpr useconds_t REST = 200;

class Follower {
  public:
    Follower(const LiveTraffic& written, LiveState* shared, std::size_t number, std::string name)
        : traffic(written), state(shared), number_(number), name_(std::move(name)) {}

    int fail(const std::string& sentence) const { return state->problem.report(name_ + ": " + sentence); }
    int fail(const char* what, ErrorCode code) const { return fail(std::string(what) + ": " + getErrorMessage(code)); }
    void count() { state->answers.at(number_) += 1; }
    bool isLate() const { return std::chrono::steady_clock::now() > deadline_ || state->problem.isThere(); }
    std::size_t acknowledged(std::size_t table) const {
        return static_cast<std::size_t>(state->acknowledged.at(table).load());
    }
    int open(std::size_t table, MessageTablePtr* reader) const {
        *reader = createTable(traffic.root(), traffic.shape(table));
        const ErrorCode code = mt_open(reader->get(), OpenMode::read);
        return code == NO_ERROR ? 0 : fail("opening for reading", code);
    }
    bool isMessage(const Message& message, std::int32_t id) const { return message == traffic.message(id); }

    const LiveTraffic& traffic;
    LiveState* state;

  private:
    const std::size_t number_;
    const std::string name_;
    const std::chrono::steady_clock::time_point deadline_ = std::chrono::steady_clock::now() + LONGEST;
};

// The lookups answer for at least the first `known` messages.
int checkLookups(const Follower& follower, MessageTable* reader, std::size_t table, std::size_t known) {
    const std::int32_t last = known == 0 ? 0 : follower.traffic.ids(table)[known - 1];
    std::int32_t uniformId = 0;
    std::int32_t messageId = 0;
    std::int32_t seqNum = 0;
    std::int64_t time = 0;
    const std::array<ErrorCode, 3> codes{mt_getLastUniformMessageId(reader, &uniformId),
                                         mt_getLastMessageId(reader, 0, &messageId),
                                         mt_getLastGoodMsgSeqNum(reader, 0, &seqNum, &time)};
    for (const ErrorCode code : codes) {
        if (code != NO_ERROR) {
            return follower.fail("a lookup", code);
        }
    }
    if (uniformId < last || messageId < last || seqNum < last || time < 1000 * std::int64_t{last}) {
        return follower.fail("lookups answer with message " + std::to_string(uniformId) + ", " +
                             std::to_string(messageId) + " and " + std::to_string(seqNum) + " when message " +
                             std::to_string(last) + " was acknowledged before");
    }
    return 0;
}

// Walks both ways and a read by id see at least the first `known` messages, and nothing else than what is written.
int checkWalks(const Follower& follower, MessageTable* reader, std::size_t table, std::size_t known) {
    const std::vector<std::int32_t>& ids = follower.traffic.ids(table);
    ReadMessages forward = readAll(reader);
    ReadMessages backward = readAllBackward(reader);
    if (forward.code != NO_ERROR || backward.code != NO_ERROR) {
        return follower.fail("a walk", forward.code == NO_ERROR ? backward.code : forward.code);
    }
    std::reverse(backward.messages.begin(), backward.messages.end());
    for (const std::vector<Message>& messages : {forward.messages, backward.messages}) {
        if (messages.size() < known || messages.size() > ids.size()) {
            return follower.fail("a walk delivers " + std::to_string(messages.size()) + " messages when " +
                                 std::to_string(known) + " were acknowledged before");
        }
        for (std::size_t i = 0; i < messages.size(); ++i) {
            if (!follower.isMessage(messages[i], ids[i])) {
                return follower.fail("a walk delivers " + ::testing::PrintToString(messages[i]) + " as message " +
                                     std::to_string(i + 1));
            }
        }
    }
    std::vector<Message> found;
    const auto take = [&](const MessageView& message) {
        found.push_back(ownedMessage(message));
        return Visit::goOn;
    };
    const MessageListener listener = listenerOf(&take);
    const std::int32_t id = ids[known - 1];
    const ErrorCode code = mt_readMessages(reader, &id, 1, &listener, true);
    if (code != NO_ERROR || found.size() != 1 || !follower.isMessage(found[0], id)) {
        return follower.fail("message " + std::to_string(id) + " is not found by its id");
    }
    return 0;
}

QueryConditionsPtr conditionsOf(const LiveTraffic& traffic, LiveFilter filter, bool backward) {
    QueryConditionsPtr conditions(conditions_create());
    (void)conditions_setIterateBackward(conditions.get(), backward);
    switch (filter) {
        case LiveFilter::none:
            break;
        case LiveFilter::symbol:
            (void)conditions_addStringFilter(conditions.get(), 2, false, false);
            (void)conditions_setStringFilterValueCount(conditions.get(), 1);
            (void)conditions_setStringFilterValue(conditions.get(), "S7", 0);
            break;
        case LiveFilter::quantities: {
            const std::array<std::int64_t, 2> values{3, 77};
            (void)conditions_addLongFilter(conditions.get(), 0, nullptr, nullptr, 0, values.data(), 2, false);
            break;
        }
        case LiveFilter::sequence:
            (void)conditions_setSeqNumRange(conditions.get(), traffic.last() / 4, traffic.last());
            break;
    }
    return conditions;
}

const char* const FILTER_NAMES[] = {"without a filter", "by symbol", "by quantity", "by sequence number"};

std::string iteratorName(const char* direction, std::size_t table, LiveFilter filter) {
    return "the " + std::string(direction) + " iterator over table " + std::to_string(table) + " " +
           FILTER_NAMES[static_cast<std::size_t>(filter)];
}

// The messages of one backward iterator, newest first; what comes must be all matches from some message on.
int checkBackward(const Follower& follower, MessageTable* reader, std::size_t table, LiveFilter filter,
                  const std::vector<std::int32_t>& known, const std::vector<std::int32_t>& all) {
    const MessageTableIteratorPtr iterator(
        mtIterator_open(reader, conditionsOf(follower.traffic, filter, true).release()));
    if (iterator == nullptr) {
        return follower.fail("it cannot be opened");
    }
    std::vector<std::int32_t> ids;
    for (bool end = false;;) {
        const ErrorCode code = mtIterator_next(iterator.get(), &end);
        if (code != NO_ERROR) {
            return follower.fail("next", code);
        }
        if (end) {
            break;
        }
        ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        if (!follower.isMessage(ownedMessage(currentMessage(iterator.get())), ids.back())) {
            return follower.fail("message " + std::to_string(ids.back()) + " of table " + std::to_string(table) +
                                 " has another content");
        }
    }
    std::reverse(ids.begin(), ids.end());
    if (ids.size() < known.size() || ids.size() > all.size() || !std::equal(ids.begin(), ids.end(), all.begin())) {
        return follower.fail(std::to_string(ids.size()) + " messages come when " + std::to_string(known.size()) +
                             " were acknowledged before, or not those that match");
    }
    return 0;
}

// A watch: the next message, and what was acknowledged when the pass before found nothing.
struct Watch {
    Follower follower;
    std::int32_t next;
    std::int32_t acknowledged = 0;
    int result = 0;

    void take(const MessageView& view, std::int32_t tableIndex) {
        const Message message = ownedMessage(view);
        if (message.metadata.uniformId != next) {
            result = follower.fail("message " + std::to_string(message.metadata.uniformId) + " comes instead of " +
                                   std::to_string(next));
        } else if (!follower.isMessage(message, next) ||
                   tableIndex != static_cast<std::int32_t>(follower.traffic.tableOf(next))) {
            result = follower.fail("message " + std::to_string(next) + " has another content or table");
        }
        next += 1;
    }
    void idle() {
        if (next <= acknowledged) {
            result = follower.fail("a pass finds nothing when message " + std::to_string(next) +
                                   " was acknowledged before it began");
        }
        acknowledged = follower.state->lastId.load();
    }
    // What every call of the watch ends with.
    ErrorCode goOn(std::int32_t* stop) {
        follower.count();
        if (follower.isLate()) {
            result = follower.fail("message " + std::to_string(next) + " does not come");
        }
        *stop = result != 0 || next > follower.traffic.last() ? 1 : 0;
        return NO_ERROR;
    }
    WatchListener listener() {
        return {this,
                [](void* owner, const MessageView& message, std::int32_t tableIndex, std::int32_t* stop) {
                    auto* watch = static_cast<Watch*>(owner);
                    watch->take(message, tableIndex);
                    return watch->goOn(stop);
                },
                [](void* owner, std::int32_t* stop) {
                    auto* watch = static_cast<Watch*>(owner);
                    watch->idle();
                    return watch->goOn(stop);
                }};
    }
};

}  // namespace

int readLive(const LiveTraffic& traffic, LiveState* state, std::size_t table, std::size_t number) {
    Follower follower(traffic, state, number, "the reader of table " + std::to_string(table));
    MessageTablePtr reader;
    for (std::int64_t pass = 0;; ++pass) {
        if (pass % OPEN_EVERY == 0 && follower.open(table, &reader) != 0) {
            return 1;
        }
        state->ready += pass == 0 ? 1 : 0;
        const std::size_t known = follower.acknowledged(table);
        int result = checkLookups(follower, reader.get(), table, known);
        if (result == 0 && (pass % WALK_EVERY == 0 || known == traffic.ids(table).size())) {
            result = checkWalks(follower, reader.get(), table, known);
        }
        if (result != 0 || known == traffic.ids(table).size()) {
            return result;
        }
        follower.count();
        if (follower.isLate()) {
            return follower.fail("the writer does not end");
        }
        ::usleep(REST);
    }
}

int iterateLive(const LiveTraffic& traffic, LiveState* state, std::size_t table, LiveFilter filter,
                std::size_t number) {
    Follower follower(traffic, state, number, iteratorName("forward", table, filter));
    MessageTablePtr reader;
    if (follower.open(table, &reader) != 0) {
        return 1;
    }
    const MessageTableIteratorPtr iterator(
        mtIterator_open(reader.get(), conditionsOf(traffic, filter, false).release()));
    const std::vector<std::int32_t> all = traffic.matches(table, filter, traffic.ids(table).size());
    state->ready += 1;
    for (std::size_t delivered = 0;;) {
        const std::size_t known = follower.acknowledged(table);
        bool end = false;
        const ErrorCode code = mtIterator_next(iterator.get(), &end);
        follower.count();
        if (code != NO_ERROR) {
            return follower.fail("next", code);
        }
        if (!end) {
            const Message message = ownedMessage(currentMessage(iterator.get()));
            if (delivered == all.size() || !follower.isMessage(message, all[delivered])) {
                return follower.fail("message " + std::to_string(message.metadata.uniformId) + " comes behind " +
                                     std::to_string(delivered == 0 ? 0 : all[delivered - 1]) + ", or is not whole");
            }
            delivered += 1;
            continue;
        }
        if (delivered < traffic.matches(table, filter, known).size()) {
            return follower.fail("it is at its end behind " + std::to_string(delivered) +
                                 " messages, and more were acknowledged before");
        }
        if (known == traffic.ids(table).size()) {
            return 0;
        }
        if (follower.isLate()) {
            return follower.fail("the writer does not end");
        }
        ::usleep(REST);
    }
}

int iterateLiveBackward(const LiveTraffic& traffic, LiveState* state, std::size_t table, LiveFilter filter,
                        std::size_t number) {
    Follower follower(traffic, state, number, iteratorName("backward", table, filter));
    MessageTablePtr reader;
    if (follower.open(table, &reader) != 0) {
        return 1;
    }
    const std::vector<std::int32_t> all = traffic.matches(table, filter, traffic.ids(table).size());
    state->ready += 1;
    for (;;) {
        const std::size_t known = follower.acknowledged(table);
        const int result =
            checkBackward(follower, reader.get(), table, filter, traffic.matches(table, filter, known), all);
        if (result != 0 || known == traffic.ids(table).size()) {
            return result;
        }
        follower.count();
        if (follower.isLate()) {
            return follower.fail("the writer does not end");
        }
        ::usleep(REST);
    }
}

int watchLive(const LiveTraffic& traffic, LiveState* state, std::int32_t from, std::size_t number) {
    Watch watch{Follower(traffic, state, number, "the watcher from " + std::to_string(from)), from};
    std::array<MessageTablePtr, LIVE_TABLES> tables;
    std::array<MessageTable*, LIVE_TABLES> handles{};
    for (std::size_t i = 0; i < LIVE_TABLES; ++i) {
        if (watch.follower.open(i, &tables.at(i)) != 0) {
            return 1;
        }
        handles.at(i) = tables.at(i).get();
    }
    MessageWatcher* watcher = messageWatcher_create(handles.data(), LIVE_TABLES);
    watcher->pause = [](std::int64_t) { ::usleep(REST); };
    state->ready += 1;
    const std::array<std::int32_t, LIVE_TABLES> ids{from, from};
    const ErrorCode code = messageWatcher_startWatching(watcher, LIVE_TABLES, ids.data(), watch.listener());
    messageWatcher_destroy(watcher);
    return code == NO_ERROR ? watch.result : watch.follower.fail("the watch ends", code);
}

}  // namespace tabulo::internal::test
