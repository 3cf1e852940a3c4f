// The operations of a model run that open, close, and end a writer as a crash does.
#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tests/model/model_run.h"
#include "tests/support/child_process.h"

namespace tabulo::internal::test {

namespace {

constexpr int KILLED = 256 + SIGKILL;
// Shorter files cannot even name their kind; they are refused for writing, but for an empty one.
constexpr std::int64_t SMALLEST_RECOVERED_FILE = 20;

}  // namespace

void ModelRun::openWriter() {
    writer_ = makeHandle(OpenMode::write, root_);
    if (tornBytes_ != 0) {
        tornBytes_ = 0;
        model_.rewind();
    }
}

void ModelRun::openWriterEmptying() {
    writer_ = makeHandle(OpenMode::create, root_);
    tornBytes_ = 0;
    dropForeignIterators(true);
    model_.cutTo(0);
}

void ModelRun::closeWriter() {
    EXPECT_EQ(mt_close(writer_->table.get()), NO_ERROR);
    writer_.reset();
}

void ModelRun::reopenWriter() {
    if (random_->percent(50)) {
        EXPECT_EQ(mt_close(writer_->table.get()), NO_ERROR);
    }
    ASSERT_EQ(mt_open(writer_->table.get(), OpenMode::write), NO_ERROR);
    endOwnIterators(writer_.get());
}

void ModelRun::refuseSecondWriter() {
    const MessageTablePtr second = createTable(root_, model_.layout());
    EXPECT_EQ(mt_open(second.get(), random_->percent(50) ? OpenMode::write : OpenMode::create), FILE_OPEN_ERROR);
}

void ModelRun::openReader() {
    readers_.push_back(makeHandle(OpenMode::read, root_));
}

void ModelRun::reopenReader() {
    Handle* reader = random_->of(readers_).get();
    ASSERT_EQ(mt_open(reader->table.get(), OpenMode::read), NO_ERROR);
    reader->viewed = false;
    endOwnIterators(reader);
}

void ModelRun::closeReader() {
    readers_.erase(readers_.begin() + random_->below(static_cast<std::int32_t>(readers_.size())));
}

void ModelRun::crash() {
    writer_.reset();
}

// Opens the shortened file for writing, which must find exactly these messages.
void ModelRun::recoverInto(std::size_t survivors) {
    dropForeignIterators(false);
    model_.cutTo(survivors);
    openWriter();
}

void ModelRun::crashWithCut() {
    const std::int64_t size = model_.fileSize();
    const std::int64_t range = size - model_.headerSize();
    const auto nearEnd = static_cast<std::int64_t>(random_->bits() % 6000);
    const std::int64_t cut = random_->percent(70)
                                 ? std::max(model_.headerSize(), size - nearEnd)
                                 : model_.headerSize() + static_cast<std::int64_t>(random_->bits() % (range + 1));
    SCOPED_TRACE("cut to " + std::to_string(cut) + " of " + std::to_string(size) + " bytes");
    if (random_->percent(30)) {
        EXPECT_EQ(mt_close(writer_->table.get()), NO_ERROR);  // a file that was whole and loses its end later
    }
    writer_.reset();
    std::filesystem::resize_file(path(), static_cast<std::uintmax_t>(cut));
    const std::size_t survivors = model_.wholeIn(cut);
    // A closed block that loses messages is no crash of a writer: its length word, or all that is left of it, is saved.
    std::vector<std::string> saved;
    const auto perBlock = static_cast<std::size_t>(model_.layout().messagesPerBlock);
    const std::size_t first = survivors / perBlock * perBlock;
    if (survivors < model_.size() && model_.isInFullBlock(survivors) && cut >= model_.frameStart(first)) {
        saved.push_back(std::to_string(model_.frameStart(first) - 8));
    }
    recoverInto(survivors);
    EXPECT_EQ(takeSalvaged(), saved);
}

void ModelRun::crashWithTornFrame() {
    writer_.reset();
    Bytes frame = plainFrame(nextMessage());
    if (model_.fileSize() == model_.openBlockStart()) {
        frame.insert(frame.begin(), 8, 0);
    }
    tornBytes_ = random_->between(1, static_cast<std::int32_t>(frame.size()) - 1);
    frame.resize(static_cast<std::size_t>(tornBytes_));
    appendFile(path(), frame);
}

void ModelRun::crashWithGarbage() {
    if (random_->percent(30)) {
        EXPECT_EQ(mt_close(writer_->table.get()), NO_ERROR);
    }
    writer_.reset();
    // Neither a frame nor its beginning: it says that it is shorter than any frame.
    Bytes garbage = {static_cast<std::uint8_t>(random_->between(1, 54)), 0, 0, 0};
    for (std::int32_t k = random_->between(4, 300); k > 0; --k) {
        garbage.push_back(static_cast<std::uint8_t>(random_->between(1, 255)));
    }
    SCOPED_TRACE(std::to_string(garbage.size()) + " bytes of garbage");
    appendFile(path(), garbage);
    recoverInto(model_.size());
    Bytes content;
    EXPECT_EQ(takeSalvaged(&content), std::vector<std::string>{std::to_string(model_.fileSize())});
    EXPECT_EQ(content, garbage) << "what recovery cut away is not what it saved";
}

void ModelRun::crashInHeader() {
    writer_.reset();
    const auto cut = static_cast<std::int64_t>(random_->bits() % static_cast<std::uint32_t>(model_.headerSize()));
    SCOPED_TRACE("cut to " + std::to_string(cut) + " bytes");
    std::filesystem::resize_file(path(), static_cast<std::uintmax_t>(cut));
    if (cut > 0 && cut < SMALLEST_RECOVERED_FILE) {
        const Bytes before = readFile(path());
        const MessageTablePtr table = createTable(root_, model_.layout());
        EXPECT_EQ(mt_open(table.get(), OpenMode::write), FILE_SIZE_ERROR);
        EXPECT_EQ(readFile(path()), before) << "a file that is refused must stay as it is";
        std::filesystem::resize_file(path(), 0);
    }
    recoverInto(0);
    takeSalvaged();  // a header that had counted messages differs from an empty table's
}

void ModelRun::openCopy() {
    const std::string root = root_ + "copy/";
    std::filesystem::create_directory(root);
    std::filesystem::copy_file(path(), root + "messages");
    const std::unique_ptr<Handle> copy = makeHandle(OpenMode::write, root);
    SCOPED_TRACE("the copy");
    EXPECT_EQ(copy->table->records.dataInfo.messageCount, static_cast<std::int32_t>(model_.size()));
    compareIndexes(copy->table.get());
    compareWalk(copy.get(), random_->percent(50));
    EXPECT_EQ(mt_close(copy->table.get()), NO_ERROR);
    std::filesystem::remove_all(root);
}

void ModelRun::writeInKilledProcess() {
    std::vector<Message> messages;
    for (std::int32_t k = random_->below(2 * model_.layout().messagesPerBlock); k > 0; --k) {
        messages.push_back(nextMessage());
    }
    ChildProcess child([&] {
        const MessageTablePtr table = createTable(root_, model_.layout());
        if (mt_open(table.get(), OpenMode::write) != NO_ERROR) {
            return 1;
        }
        for (const Message& message : messages) {
            if (writeMessage(table.get(), message) != NO_ERROR) {
                return 2;
            }
        }
        return std::raise(SIGKILL);
    });
    ASSERT_EQ(child.wait(), KILLED) << "the process should store " << messages.size() << " messages";
    if (tornBytes_ != 0) {
        tornBytes_ = 0;
        model_.rewind();
    }
    for (const Message& message : messages) {
        model_.append(message);
    }
}

}  // namespace tabulo::internal::test
