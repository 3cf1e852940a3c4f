#include "tests/model/model_run.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <stdexcept>

#include "messagetable/message_lookup.h"
#include "messagetable/table_walk.h"
#include "tests/support/current_message.h"
#include "tests/support/message_takers.h"

namespace tabulo::internal::test {

struct ModelRun::Operation {
    const char* name;
    int weight;
    bool (ModelRun::*possible)() const;
    void (ModelRun::*run)();
};

const std::vector<ModelRun::Operation>& ModelRun::operations() {
    using Run = ModelRun;
    static const std::vector<Operation> all = {
        {"write one message", 300, &Run::hasWriter, &Run::writeOne},
        {"write several messages", 120, &Run::hasWriter, &Run::writeBurst},
        {"write an encoded frame", 100, &Run::hasWriter, &Run::writeRaw},
        {"a write that is refused", 60, &Run::hasWriter, &Run::refuseWrite},
        {"a write on a reader", 20, &Run::hasReader, &Run::refuseOnReader},
        {"save the tail and go on", 25, &Run::hasWriter, &Run::saveTail},
        {"drop", 6, &Run::hasWriter, &Run::drop},
        {"drop a long table", 300, &Run::isLong, &Run::drop},
        {"open the writer", 400, &Run::hasNoWriter, &Run::openWriter},
        {"open the writer, emptying", 6, &Run::hasNoWriter, &Run::openWriterEmptying},
        {"close the writer", 30, &Run::hasWriter, &Run::closeWriter},
        {"open the writer again, the same object", 15, &Run::hasWriter, &Run::reopenWriter},
        {"open a second writer", 20, &Run::hasWriter, &Run::refuseSecondWriter},
        {"open a reader", 60, &Run::hasRoomForReader, &Run::openReader},
        {"open a reader again, the same object", 15, &Run::hasReader, &Run::reopenReader},
        {"close a reader", 30, &Run::hasReader, &Run::closeReader},
        {"abandon the writer", 25, &Run::hasWriter, &Run::crash},
        {"abandon the writer and cut the file", 40, &Run::hasWriter, &Run::crashWithCut},
        {"abandon the writer in the midst of a frame", 25, &Run::hasWriter, &Run::crashWithTornFrame},
        {"abandon the writer and append garbage", 20, &Run::hasWriter, &Run::crashWithGarbage},
        {"abandon the writer and cut the header", 5, &Run::hasWriter, &Run::crashInHeader},
        {"open a copy of the file beside the writer", 15, &Run::hasWriter, &Run::openCopy},
        {"write in a process that is killed", 40, &Run::hasNoWriter, &Run::writeInKilledProcess},
        {"query", 150, &Run::hasHandle, &Run::query},
        {"open an iterator to keep", 60, &Run::hasHandle, &Run::openIterator},
        {"advance a kept iterator", 150, &Run::hasHandle, &Run::advanceIterator},
        {"read messages by id", 100, &Run::hasHandle, &Run::readMessages},
        {"find a uniform id", 80, &Run::hasHandle, &Run::findUniformId},
    };
    return all;
}

ModelRun::ModelRun(Random* random, const std::string& root)
    : random_(random), root_(root), pool_(randomMessages(random, false)), model_(pool_.layout) {
    const MessageTablePtr missing = createTable(root_, model_.layout());
    EXPECT_EQ(mt_open(missing.get(), OpenMode::read), FILE_OPEN_ERROR) << "there is no file yet";
    writer_ = makeHandle(random_->percent(50) ? OpenMode::write : OpenMode::create, root_);
}

std::size_t ModelRun::choose() {
    const std::vector<Operation>& all = operations();
    int sum = 0;
    for (const Operation& operation : all) {
        sum += (this->*operation.possible)() ? operation.weight : 0;
    }
    std::int32_t ticket = random_->below(sum);
    for (std::size_t i = 0; i < all.size(); ++i) {
        ticket -= (this->*all[i].possible)() ? all[i].weight : 0;
        if (ticket < 0) {
            return i;
        }
    }
    return 0;
}

const char* ModelRun::name(std::size_t operation) {
    return operations()[operation].name;
}

void ModelRun::perform(std::size_t operation) {
    (this->*operations()[operation].run)();
    if (!::testing::Test::HasFailure()) {
        compareAll();
    }
}

Message ModelRun::nextMessage() {
    Message message = pool_.messages[drawn_ % pool_.messages.size()];
    drawn_ += 1;
    // Most messages differ from all others.
    if (random_->percent(70)) {
        message.metadata.prevSeqNum = static_cast<std::int32_t>(drawn_);
    }
    if (random_->percent(10)) {
        message.strings[random_->bits() % message.strings.size()] =
            std::string(static_cast<std::size_t>(random_->between(1, 6000)), 'x');
    }
    return message;
}

Handle& ModelRun::someHandle() {
    if (hasWriter() && (readers_.empty() || random_->percent(40))) {
        return *writer_;
    }
    return *random_->of(readers_);
}

std::unique_ptr<Handle> ModelRun::makeHandle(OpenMode mode, const std::string& root) {
    auto handle = std::make_unique<Handle>();
    handle->table = openTable(root, model_.layout(), mode);
    if (handle->table == nullptr) {
        throw std::runtime_error("the run cannot go on without this table");
    }
    handle->writes = mode != OpenMode::read;
    return handle;
}

std::vector<std::string> ModelRun::takeSalvaged(Bytes* content) {
    std::vector<std::string> offsets;
    const std::string prefix = "messages.cut-";
    for (const auto& entry : std::filesystem::directory_iterator(root_)) {
        const std::string file = entry.path().filename().string();
        if (file.starts_with(prefix)) {
            offsets.push_back(file.substr(prefix.size()));
            if (content != nullptr) {
                *content = readFile(entry.path().string());
            }
        }
    }
    for (const std::string& offset : offsets) {
        std::filesystem::remove(root_ + prefix + offset);
    }
    return offsets;
}

void ModelRun::compareAll() {
    compareFile();
    if (hasWriter()) {
        compareLookups(writer_.get());
    }
    for (const std::unique_ptr<Handle>& reader : readers_) {
        // Not always: a view that is several changes old must come up to date as well.
        if (random_->percent(70)) {
            compareLookups(reader.get());
        }
    }
    if (hasHandle()) {
        compareWalk(&someHandle(), random_->percent(50));
    }
}

void ModelRun::compareFile() {
    EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(path())), model_.fileSize() + tornBytes_)
        << "the file should hold the " << model_.size() << " messages and nothing else";
    if (hasWriter()) {
        const MessageTable& table = *writer_->table;
        EXPECT_EQ(table.records.dataInfo.messageCount, static_cast<std::int32_t>(model_.size()));
        EXPECT_EQ(static_cast<std::int64_t>(table.records.dataInfo.dataEnd), model_.fileSize());
        EXPECT_EQ(mt_openBlockStart(&table), model_.openBlockStart());
    }
    EXPECT_EQ(takeSalvaged(), std::vector<std::string>{}) << "nothing was damaged that had to be saved";
}

void ModelRun::compareLookups(Handle* handle) {
    const std::int64_t size = model_.fileSize() + tornBytes_;
    const std::int64_t blockStart = model_.openBlockStart();
    if (!handle->writes) {
        const bool looksUnchanged = handle->viewed && handle->viewSize == size && handle->viewBlockStart == blockStart;
        if (looksUnchanged && handle->viewGeneration != model_.generation()) {
            EXPECT_EQ(mt_refresh(handle->table.get()), NO_ERROR);
            return;  // another file of the same size: only the next change is seen
        }
        handle->viewed = true;
        handle->viewGeneration = model_.generation();
        handle->viewSize = model_.fileSize();
        handle->viewBlockStart = blockStart;
    }
    SCOPED_TRACE(handle->writes ? "lookups of the writer" : "lookups of a reader");
    compareIndexes(handle->table.get());
}

void ModelRun::compareIndexes(MessageTable* table) {
    const PlainIndexes& indexes = model_.indexes();
    const int messageClass = random_->below(5);
    const auto [first, last] = plainClassRange(messageClass);
    const std::int32_t base = random_->percent(50) ? first : last;
    const std::int32_t highest = indexes.highestIds[static_cast<std::size_t>(messageClass)];
    std::int32_t id = 0;
    EXPECT_EQ(mt_getLastMessageId(table, base, &id), NO_ERROR);
    EXPECT_EQ(id, highest < 0 ? base : highest) << "the last message id of class " << messageClass;

    const auto since = [this](const PlainSeqNum& number) {
        static const std::vector<std::int64_t> times = {0, std::numeric_limits<std::int64_t>::min(),
                                                        std::numeric_limits<std::int64_t>::max()};
        return random_->percent(40) ? random_->of(times) : number.timestamp + random_->between(-1, 1);
    };
    const auto expected = [](const PlainSeqNum& number, std::int64_t time) {
        return number.timestamp >= time ? number : PlainSeqNum{};
    };
    std::int32_t seqNum = 77;
    std::int64_t timestamp = 77;
    std::int64_t time = since(indexes.lastGood);
    EXPECT_EQ(mt_getLastGoodMsgSeqNum(table, time, &seqNum, &timestamp), NO_ERROR);
    EXPECT_EQ(seqNum, expected(indexes.lastGood, time).seqNum) << "the last good number since " << time;
    EXPECT_EQ(timestamp, expected(indexes.lastGood, time).timestamp) << "the last good number's time since " << time;
    time = since(indexes.firstPending);
    EXPECT_EQ(mt_getFirstPendingMsgSeqNum(table, time, &seqNum), NO_ERROR);
    EXPECT_EQ(seqNum, expected(indexes.firstPending, time).seqNum - 1) << "the first pending number since " << time;
    time = since(indexes.lastPending);
    EXPECT_EQ(mt_getLastPendingMsgSeqNum(table, time, &seqNum), NO_ERROR);
    EXPECT_EQ(seqNum, expected(indexes.lastPending, time).seqNum) << "the last pending number since " << time;
    std::int32_t uniformId = 77;
    EXPECT_EQ(mt_getLastUniformMessageId(table, &uniformId), NO_ERROR);
    EXPECT_EQ(uniformId, indexes.lastUniform) << "the last uniform id";
}

namespace {

// The messages that a walk delivers, compared one by one with those of the model.
struct Comparison {
    const std::vector<Message>& messages;
    bool backward = false;
    std::size_t delivered = 0;
    bool same = true;

    Visit operator()(const MessageView& message) {
        if (same) {
            const std::size_t count = messages.size();
            same = delivered < count && ownedMessage(message) == messages[backward ? count - 1 - delivered : delivered];
            delivered += same ? 1 : 0;
        }
        return Visit::goOn;
    }
};

}  // namespace

void ModelRun::compareWalk(Handle* handle, bool backward) {
    SCOPED_TRACE(std::string(backward ? "a walk backward" : "a walk forward") +
                 (handle->writes ? " on the writer" : " on a reader"));
    MessageTable* table = handle->table.get();
    const BlockReaderPtr frames(mfr_createReader(table->storage.get(), table->header.layout));
    ASSERT_NE(frames, nullptr);
    Comparison comparison{model_.messages(), backward};
    if (backward) {
        ASSERT_EQ(mt_refresh(table), NO_ERROR);
        EXPECT_EQ(mfr_readBackward(frames.get(), mt_openBlockStart(table), visitorOf(&comparison)), NO_ERROR);
    } else {
        EXPECT_EQ(mfr_readForward(frames.get(), table->storage->headerSize, visitorOf(&comparison)), NO_ERROR);
    }
    EXPECT_TRUE(comparison.same) << "the message after " << comparison.delivered << " right ones is another one";
    EXPECT_EQ(comparison.delivered, model_.size()) << "messages are missing or too many";
}

bool isCurrent(const MessageTableIterator* iterator, const Message& message) {
    const MessageView current = currentMessage(iterator);
    const bool saysAbsent = std::all_of(current.texts.begin(), current.texts.end(), [](const StringField& field) {
        return (field.text == nullptr) == (field.length == 0);
    });
    return saysAbsent && ownedMessage(current) == message;
}

}  // namespace tabulo::internal::test
