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
    const MessageTableLayout& layout = table->header.layout;
    MessageMetadata metadata;
    metadata.uniformId = uniformId;
    std::array<StringField, MAX_STRING_FIELDS> strings{};
    const std::array<NumericValue, MAX_NUMERIC_FIELDS> numbers{};
    strings[static_cast<std::size_t>(layout.stringFieldCount) - 2] = {wire.data(),
                                                                      static_cast<std::int32_t>(wire.size())};
    return mt_writeMessage(table, &metadata, strings.data(), layout.stringFieldCount, numbers.data(),
                           layout.numericFieldCount);
}

ErrorCode WatchRecord::take(std::int32_t* stop, void* context, const MessageMetadata* metadata,
                            const StringField* stringFields, std::int32_t stringFieldCount,
                            const NumericValue* numericFields, std::int32_t numericFieldCount,
                            std::int32_t readerIndex) {
    auto* self = static_cast<WatchRecord*>(context);
    self->stopFlag_ = stop;
    if (metadata == nullptr) {
        EXPECT_EQ(stringFields, nullptr) << "a call without a message has no texts";
        EXPECT_EQ(stringFieldCount, 0);
        EXPECT_EQ(numericFields, nullptr) << "a call without a message has no numbers";
        EXPECT_EQ(numericFieldCount, 0);
        EXPECT_EQ(readerIndex, 0);
        return self->takeIdle();
    }
    Received received;
    received.metadata = *metadata;
    for (std::int32_t i = 0; i < stringFieldCount; ++i) {
        received.strings.push_back(stringFields[i].length == 0
                                       ? std::nullopt
                                       : std::optional(std::string(stringField_bytes(stringFields[i]))));
    }
    received.numbers.assign(numericFields, numericFields + numericFieldCount);
    received.reader = readerIndex;
    self->received.push_back(received);
    self->events.push_back(std::to_string(metadata->uniformId) + "@" + std::to_string(readerIndex));
    return self->onMessage ? self->onMessage(received) : NO_ERROR;
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
    return messageWatcher_startWatching(watcher, static_cast<std::int32_t>(startingIds.size()), startingIds.data(),
                                        this, take);
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
