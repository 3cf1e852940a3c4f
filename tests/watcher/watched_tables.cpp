#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {

namespace {

constexpr int MOST_IDLE_CALLS = 100000;  // a watch that cannot be stopped fails the test instead of hanging

WatchRecord* running = nullptr;

void recordPause(std::int64_t milliseconds) {
    running->events.push_back("pause " + std::to_string(milliseconds));
}

}  // namespace

WatchedTablePtr makeWatched(const std::string& root, const std::string& name, const WatchedShape& shape) {
    KSVTboTableConfig* config = tableConfig_create(name.c_str(), 1);
    MessageTableLayout layout;
    layout.messagesPerBlock = shape.messagesPerBlock;
    EXPECT_EQ(tableConfig_setPath(config, 0, root.c_str()), NO_ERROR);
    EXPECT_EQ(tableConfig_setParams(config, &layout, nullptr), NO_ERROR);
    for (std::int32_t i = 0; i < shape.configuredStrings; ++i) {
        EXPECT_EQ(tableConfig_addStringFieldName(config, ("S" + std::to_string(i)).c_str()), NO_ERROR);
    }
    for (std::int32_t i = 0; i < shape.configuredNumbers; ++i) {
        EXPECT_EQ(tableConfig_addNumericFieldName(config, ("N" + std::to_string(i)).c_str()), NO_ERROR);
    }
    return WatchedTablePtr(mt_create(config));
}

ErrorCode storeMessage(MessageTable* table, std::int32_t uniformId, std::string_view wire) {
    const MessageTableLayout& layout = mt_layout(table);
    Message message;
    message.metadata.uniformId = uniformId;
    message.strings.resize(static_cast<std::size_t>(layout.stringFieldCount));
    message.strings[message.strings.size() - 2] = std::string(wire);
    message.numbers.resize(static_cast<std::size_t>(layout.numericFieldCount));
    return mt_writeMessage(table, MessageFields(message).view());
}

ErrorCode WatchRecord::take(const MessageView& message, std::int32_t tableIndex) {
    received.push_back({ownedMessage(message), tableIndex});
    events.push_back(std::to_string(message.metadata.uniformId) + "@" + std::to_string(tableIndex));
    return onMessage ? onMessage(received.back()) : NO_ERROR;
}

ErrorCode WatchRecord::takeIdle() {
    events.push_back("idle");
    idleCalls += 1;
    if (idleCalls >= MOST_IDLE_CALLS) {
        ADD_FAILURE() << "the watch came to " << idleCalls << " calls without a message";
        stop();
    }
    if (onIdle) {
        return onIdle(idleCalls);
    }
    stop();
    return NO_ERROR;
}

ErrorCode WatchRecord::run(MessageWatcher* watcher, const std::vector<std::int32_t>& startingIds) {
    running = this;
    if (watcher != nullptr) {
        watcher->pause = recordPause;
    }
    return runInRealTime(watcher, startingIds);
}

ErrorCode WatchRecord::runInRealTime(MessageWatcher* watcher, const std::vector<std::int32_t>& startingIds) {
    const WatchListener listener{
        this,
        [](void* owner, const MessageView& message, std::int32_t tableIndex, std::int32_t* stop) {
            auto* self = static_cast<WatchRecord*>(owner);
            self->stopFlag_ = stop;
            return self->take(message, tableIndex);
        },
        [](void* owner, std::int32_t* stop) {
            auto* self = static_cast<WatchRecord*>(owner);
            self->stopFlag_ = stop;
            return self->takeIdle();
        }};
    return messageWatcher_startWatching(watcher, static_cast<std::int32_t>(startingIds.size()), startingIds.data(),
                                        listener);
}

std::vector<std::string> WatchRecord::deliveries() const {
    std::vector<std::string> found;
    for (const std::string& event : events) {
        if (event.find('@') != std::string::npos) {
            found.push_back(event);
        }
    }
    return found;
}

void WatchRecord::clear() {
    events.clear();
    received.clear();
    idleCalls = 0;
}

WatchedTablePtr WatcherTest::open(const std::string& name, OpenMode mode) const {
    WatchedTablePtr table = makeWatched(directory.root(), name, shape);
    const ErrorCode code = mt_open(table.get(), mode);
    EXPECT_EQ(code, NO_ERROR) << "opening " << name << " in mode " << openMode_number(mode) << ": "
                              << getErrorMessage(code);
    return code == NO_ERROR ? std::move(table) : nullptr;
}

void WatcherTest::fill(const std::string& name, const std::vector<std::int32_t>& ids) const {
    const WatchedTablePtr writer = open(name, OpenMode::create);
    for (const std::int32_t id : ids) {
        ASSERT_EQ(storeMessage(writer.get(), id), NO_ERROR) << "storing " << id << " in " << name;
    }
    ASSERT_EQ(mt_close(writer.get()), NO_ERROR);
}

WatchedTablePtr WatcherTest::filled(const std::string& name, const std::vector<std::int32_t>& ids) const {
    fill(name, ids);
    return open(name, OpenMode::read);
}

WatcherPtr WatcherTest::watch(const std::vector<MessageTable*>& tables) {
    WatcherPtr watcher(messageWatcher_create(tables.data(), static_cast<std::int32_t>(tables.size())));
    EXPECT_NE(watcher, nullptr) << "the watcher cannot be made";
    return watcher;
}

}  // namespace tabulo::internal::test
