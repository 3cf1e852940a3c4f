#include "adapters/sqlite/table_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "tabulo/index.h"

namespace tabulo::sqlite {

namespace {

[[noreturn]] void refuse(Code code, const std::filesystem::path& path, std::string detail) {
    throw Error({.code = code, .path = path, .detail = std::move(detail)});
}

Reader openTable(const std::filesystem::path& path) {
    try {
        return Reader(path);
    } catch (const Error& error) {
        if (error.code() == Code::tableType) {
            refuse(Code::tableType, path, "it is no message table; tabulo_session('...') shows a session info table");
        }
        throw;
    }
}

}  // namespace

TableFile::TableFile(std::filesystem::path path)
    : path_(std::move(path)), pathText_(path_.string()), identity_(identity()), reader_(openTable(path_)) {
    look(false);
}

TableFile::Identity TableFile::identity() const {
    struct stat status {};
    return ::stat(path_.c_str(), &status) == 0 ? Identity{status.st_dev, status.st_ino} : Identity{};
}

void TableFile::look(bool mayHaveOtherFields) {
    const Identity now = identity();
    if (now != identity_) {
        Reader reader = openTable(path_);
        const Layout& layout = reader.layout();
        const Layout& known = reader_.layout();
        if (!mayHaveOtherFields && (layout.texts != known.texts || layout.numbers != known.numbers)) {
            refuse(Code::configMismatch, path_,
                   "another table with other fields has taken its place; DROP the virtual table and create it again");
        }
        reader_ = std::move(reader);
        identity_ = now;
        unit_.reset();
        last_.reset();
        rangesEnd_.reset();
    }
    try {
        end_ = reader_.end();
    } catch (const Error& error) {
        if (error.code() != Code::consistency) {
            throw;
        }
        end_.reset();
    }
    if (!unit_.has_value() && end_ != reader_.begin()) {
        const TableInfo info = inspect(path_);
        const auto time = info.lastTime.has_value() ? info.lastTime : info.firstTime;
        unit_ = time.has_value() ? guessTimeUnit(*time) : std::nullopt;
    }
}

double TableFile::messageCount() {
    const double perBlock = reader_.layout().messagesPerBlock;
    if (!end_.has_value() || last_.has_value()) {
        return last_.has_value() ? static_cast<double>(last_->firstMessage + last_->messageCount) : perBlock;
    }
    return static_cast<double>(inspect(path_).messageCount);
}

bool TableFile::hasIndex() {
    return std::filesystem::exists(indexPath(path_));
}

void TableFile::take(const BlockRecord& block, Ranges* ranges) const {
    const auto& ids = block.uniformIds;
    const auto& times = block.times;
    ranges->firstTime = std::min(ranges->firstTime, times.first);
    ranges->lastTime = std::max(ranges->lastTime, times.last);
    if (block.ordinal == 0) {
        ranges->uniformIds = ids;
        ranges->times = times;
        return;
    }
    ranges->uniformIdsAscend &= ranges->uniformIds.last <= ids.first;
    ranges->timesAscend &= ranges->times.last <= times.first;
    ranges->uniformIds.last = ids.last;
    ranges->times.last = times.last;
}

// All blocks, or from the last one that is known on.
void TableFile::readBlocks() {
    if (rangesEnd_.has_value() && rangesEnd_ == end_) {
        return;
    }
    const auto known = last_;
    if (!known.has_value()) {
        closed_ = {};
    }
    all_ = closed_;
    last_.reset();
    try {
        Blocks blocks = known.has_value() ? reader_.blocksFrom(*known) : reader_.blocks();
        for (const BlockRecord& block : blocks) {
            if (known.has_value() && block.ordinal == known->ordinal && known->closed &&
                !(block.length == known->length && block.uniformIds == known->uniformIds &&
                  block.times == known->times)) {
                throw Error({.code = Code::vseek, .path = path_});  // another content
            }
            closed_ = all_;
            take(block, &all_);
            last_ = block;
        }
        all_.isWhole = blocks.ending() == Ending::data;
        rangesEnd_ = end_;
    } catch (const Error& error) {
        last_.reset();
        all_.isWhole = false;
        if (known.has_value()) {
            readBlocks();
        }
    }
}

bool TableFile::isOrdered(Key key) {
    readBlocks();
    if (!all_.isWhole || !end_.has_value()) {
        return false;
    }
    return key == Key::uniformId ? all_.uniformIdsAscend : all_.timesAscend;
}

bool TableFile::hasTimesWithin(std::int64_t first, std::int64_t last) {
    readBlocks();
    return all_.isWhole && (!last_.has_value() || (first <= all_.firstTime && all_.lastTime <= last));
}

}  // namespace tabulo::sqlite
