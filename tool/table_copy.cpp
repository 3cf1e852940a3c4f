#include "tool/table_copy.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "tool/new_table.h"
#include "tool/status.h"
#include "tool/tables.h"
#include "tool/target.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t BATCH_BYTES = std::size_t{1024} * 1024;

bool sameBytes(std::span<const std::byte> a, std::span<const std::byte> b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

// The first message that a query gives; empty when there is none.
std::vector<std::byte> firstFrame(Reader& reader, const Query& query = {}) {
    Messages messages = reader.messages(query);
    const MessageView* message = messages.next();
    return message == nullptr ? std::vector<std::byte>()
                              : std::vector<std::byte>(message->frame().begin(), message->frame().end());
}

}  // namespace

TableCopy::TableCopy(std::filesystem::path source, std::filesystem::path target)
    : source_(std::move(source)),
      target_(std::move(target)),
      unfinished_(target_.parent_path() / ('.' + target_.filename().string() + ".unfinished")) {
}

void TableCopy::fixEnd() {
    Reader table(source_);
    try {
        first_ = firstFrame(table);
        end_ = table.end();
    } catch (const Error& error) {
        if (error.code() != Code::consistency) {
            throw;
        }
        damage_ = error.what();
    }
}

void TableCopy::compare(Console& console) {
    std::error_code error;
    if (std::filesystem::exists(target_, error) && std::filesystem::equivalent(source_, target_, error)) {
        throw UsageError(fmt::format("{} would be its own copy", shownPath(source_)));
    }
    Reader table(source_);
    const bool isLeft = std::filesystem::exists(std::filesystem::symlink_status(unfinished_));
    if (isLeft && isOpenForWriting(unfinished_) == OpenForWriting::yes) {
        failBusy();
    }
    if (std::filesystem::exists(std::filesystem::symlink_status(target_))) {
        std::filesystem::remove(unfinished_);  // the same file, when a run was killed while it named it
        found_ = target_;
        Reader copy(target_);
        checkSame(table, copy);
        begin_ = copy.end();
        return;
    }
    if (!isLeft) {
        return;
    }
    try {
        Reader copy(unfinished_);
        checkSame(table, copy);
        begin_ = copy.end();
        found_ = unfinished_;
    } catch (const std::exception&) {  // it was never told of, and may be the beginning of a header
        console.say(fmt::format("{}: what an earlier run has left is of no use, and is made anew", shownPath(target_)));
        std::filesystem::remove(unfinished_);
        begin_.reset();
    }
}

void TableCopy::checkSame(Reader& table, Reader& copy) const {
    const auto refuse = [&](std::string_view why) {
        throw Failure(fmt::format("{} is no copy of {} any more: {}; nothing was copied to it; name another folder",
                                  shownPath(copy.path()), shownPath(source_), why));
    };
    if (!(copy.layout() == table.layout())) {
        refuse("they have different layouts");
    }
    const Position end = copy.end();
    Messages backward = copy.messages(Query().backward());
    const MessageView* last = backward.next();
    if (last == nullptr) {
        return;
    }
    if (first_.empty() && damage_.has_value()) {
        refuse(*damage_);
    }
    constexpr std::string_view DROPPED = "the table was dropped or cut since";
    if (first_.empty() || !sameBytes(first_, firstFrame(copy)) || (end_.has_value() && *end_ < end)) {
        refuse(DROPPED);
    }
    try {
        if (!sameBytes(last->frame(), firstFrame(table, Query().from(last->position())))) {
            refuse(DROPPED);
        }
    } catch (const Error& error) {
        refuse(fmt::format("{} ({})", DROPPED, error.what()));
    }
}

// A table that is dropped gets another first message.
bool TableCopy::isSame(Reader& table) const {
    try {
        return sameBytes(first_, firstFrame(table));
    } catch (const Error&) {
        return false;
    }
}

void TableCopy::failDropped() const {
    throw Failure(
        fmt::format("{} was dropped while it was copied; the copy ends in front of that", shownPath(source_)));
}

void TableCopy::failBusy() const {
    throw Failure(fmt::format("{} is being written by another process", shownPath(target_)));
}

Writer TableCopy::openCopy(const Layout& layout) {
    isMade_ = found_ != target_;  // also when it is made in part only
    try {
        return found_.empty() ? Writer::create(unfinished_, layout) : Writer::open(found_);
    } catch (const Error& error) {
        const std::filesystem::path& copy = found_.empty() ? unfinished_ : found_;
        if (error.code() == Code::fileOpen && std::filesystem::exists(copy) &&
            isOpenForWriting(copy) == OpenForWriting::yes) {
            isMade_ = false;
            failBusy();
        }
        throw;
    }
}

void TableCopy::append(Console& console, Reader& table) {
    BatchWriter writer(openCopy(table.layout()), BATCH_BYTES);
    if (begin_.has_value() && writer.writer().end() != *begin_) {
        throw Failure(fmt::format("{} was changed by somebody else meanwhile", shownPath(target_)));
    }
    // What was read is of the table that it was begun with when its first message is there still.
    const auto flush = [&] { isSame(table) ? writer.flush() : failDropped(); };
    Query query;
    if (begin_.has_value()) {
        query.from(*begin_);
    }
    if (end_.has_value()) {
        query.before(*end_);
    }
    Ending ending = Ending::none;
    try {
        Messages messages = table.messages(query, console.watched("copying " + shownPath(source_)));
        for (const MessageView& message : messages) {
            ++added_;
            if (writer.add(message)) {
                flush();
            }
        }
        ending = messages.ending();
    } catch (const Error& error) {
        if (error.path() != table.path()) {
            throw;
        }
        if (error.code() == Code::vseek) {
            failDropped();  // the places were the table's own
        }
        if (!first_.empty() && !isSame(table)) {
            failDropped();
        }
        damage_ = error.what();
    }
    Console::checkInterrupt();
    flush();
    if (ending == Ending::dropped) {
        failDropped();
    }
    if (!damage_.has_value() && writer.writer().end() != *end_) {
        throw Failure(fmt::format("{} ends at {} and its copy at {}", shownPath(source_), end_->offset,
                                  writer.writer().end().offset));
    }
    writer.close();
}

void TableCopy::finish() {
    const std::filesystem::path& copy = found_.empty() ? unfinished_ : found_;
    commitFile(copy);  // the header, too, which closing has written
    if (copy == unfinished_) {
        nameFinished(unfinished_, target_);
        isMade_ = false;
    }
    const TableInfo info = inspect(target_);
    if (info.problem.has_value()) {
        throw *info.problem;
    }
    messages_ = info.messageCount;
    lastUniformId_ = info.lastUniformId;
    size_ = info.fileSize;
}

void TableCopy::run(Console& console) {
    Reader table(source_);
    try {
        append(console, table);
        finish();
    } catch (...) {
        if (isMade_) {
            std::error_code error;
            std::filesystem::remove(unfinished_, error);
        }
        throw;
    }
}

}  // namespace tabulo::tool
