#include "adapters/nats/copy_table.h"

#include <fstream>
#include <utility>

#include "adapters/nats/layout_text.h"
#include "adapters/nats/table_bytes.h"
#include "tabulo/reader.h"

namespace tabulo::shipping {

namespace {

constexpr std::size_t BATCH = std::size_t{256} * 1024;

bool isThere(const std::filesystem::path& path) {
    return std::filesystem::exists(path);
}

}  // namespace

CopyTable::CopyTable(std::filesystem::path path, std::int64_t incarnation, Words words)
    : path_(std::move(path)), incarnation_(incarnation), words_(std::move(words)) {
}

bool CopyTable::isTurn(const Record& record) const noexcept {
    return record.kind != RecordKind::message && record.incarnation >= incarnation_ &&
           !(record.kind == RecordKind::layout && record.incarnation == incarnation_);
}

std::int64_t CopyTable::end() const {
    return writer_.has_value() ? writer_->end().offset : 0;
}

// False when there is no file.
bool CopyTable::open() {
    if (!writer_.has_value() && isThere(path_)) {
        writer_ = Writer::open(path_);
        for (const std::string& warning : writer_->warnings()) {
            words_.say(warning);
        }
    }
    return writer_.has_value();
}

Writer& CopyTable::writer() {
    if (!open()) {
        throw CopyBehind(path_.string() + " is not there");
    }
    return *writer_;
}

void CopyTable::apply(const Record& record) {
    if (record.incarnation < incarnation_) {
        return;  // of a content that is gone
    }
    switch (record.kind) {
        case RecordKind::layout:
            return takeLayout(record);
        case RecordKind::message:
            return takeFrame(record);
        case RecordKind::drop:
            return drop();
        case RecordKind::rewind:
            return rewind(record);
        default:
            return;
    }
}

std::string CopyTable::elsewhere(std::int64_t offset) const {
    return path_.string() + " has something else at offset " + std::to_string(offset) +
           " than the stream, as if somebody else had written to it";
}

void CopyTable::takeLayout(const Record& record) {
    const std::optional<Layout> layout = layoutOf(textOf(record.payload));
    if (!layout.has_value()) {
        throw CopyRefused("the layout of " + path_.filename().string() + " that has come is none");
    }
    flush();
    const bool isNew = incarnation_ != 0 && record.incarnation > incarnation_;
    if (open() && (isNew || isEmpty())) {
        if (layoutText(writer_->layout()) == layoutText(*layout)) {
            drop();
        } else {
            close();
            std::filesystem::remove(path_);
        }
    }
    if (!open()) {
        writer_ = Writer::create(path_, *layout);
    }
    if (layoutText(writer_->layout()) != layoutText(*layout)) {
        close();
        throw CopyRefused(path_.string() +
                          " has other fields than the table of the stream: move it away, to have it built anew");
    }
    incarnation_ = record.incarnation;
}

// Of an open table.
bool CopyTable::isEmpty() const {
    return writer_->end().offset == Reader(path_).begin().offset;
}

void CopyTable::drop() {
    batch_.clear();
    partsOffset_ = -1;
    if (open() && !isEmpty()) {
        writer_->drop();
    }
}

void CopyTable::takeFrame(const Record& record) {
    if (incarnation_ == 0) {
        incarnation_ = record.incarnation;
    }
    if (record.incarnation > incarnation_) {
        throw CopyBehind(path_.string() + " has a content of before");
    }
    std::span<const std::byte> frame = record.payload;
    if (record.whole != static_cast<std::int64_t>(frame.size())) {
        if (record.at == 0) {
            parts_.clear();
            partsOffset_ = record.offset;
        }
        if (partsOffset_ != record.offset || record.at != static_cast<std::int64_t>(parts_.size())) {
            partsOffset_ = -1;
            throw CopyBehind("a part of a message of " + path_.filename().string() + " is missing");
        }
        parts_.insert(parts_.end(), frame.begin(), frame.end());
        if (!record.isLastPart()) {
            return;
        }
        partsOffset_ = -1;
        frame = parts_;
    }
    if (!batch_.empty() && record.offset != batchEnd_) {
        flush();
    }
    if (batch_.empty()) {
        const std::int64_t end = writer().end().offset;
        if (record.offset > end) {
            throw CopyBehind(path_.string() + " ends at offset " + std::to_string(end));
        }
        if (record.offset < end) {
            if (!TableBytes(path_).holds(record.offset, frame)) {
                throw CopyBehind(elsewhere(record.offset));
            }
            return;
        }
    }
    batchEnd_ = record.offset + static_cast<std::int64_t>(frame.size());
    if (frame.data() == parts_.data()) {
        batch_.insert(batch_.end(), frame.begin(), frame.end());
        parts_ = {};  // a large frame's memory is not kept
    } else {
        batch_.insert(batch_.end(), frame.begin(), frame.end());
    }
    if (batch_.size() >= BATCH) {
        flush();
    }
}

void CopyTable::flush() {
    if (batch_.empty()) {
        return;
    }
    const std::vector<std::byte> batch = std::exchange(batch_, {});
    writer().appendFrames(batch);
}

void CopyTable::close() {
    flush();
    if (writer_.has_value()) {
        Writer closing = std::move(*writer_);
        writer_.reset();
        closing.close();
    }
}

// Keeps the bytes from an offset on beside the table, under a name that no file has.
void CopyTable::save(std::int64_t from) const {
    const std::string base = path_.string() + ".cut-" + std::to_string(from);
    std::string name = base;
    for (int number = 1; isThere(name); ++number) {
        name = base + "-" + std::to_string(number);
    }
    std::ifstream in(path_, std::ios::binary);
    in.seekg(from);
    std::ofstream out(name, std::ios::binary);
    out << in.rdbuf();
    out.close();
    if (!in || !out) {
        throw CopyRefused("what is to be cut off " + path_.string() + " could not be saved as " + name);
    }
    words_.say(path_.string() + " is cut at offset " + std::to_string(from) +
               ", as its source was; what stood there is kept as " + name);
}

void CopyTable::rewind(const Record& record) {
    flush();
    partsOffset_ = -1;
    if (incarnation_ == 0) {
        incarnation_ = record.incarnation;
    }
    if (writer().end().offset <= record.offset) {
        return;
    }
    if (!record.payload.empty() && !TableBytes(path_).holds(record.at, record.payload)) {
        throw CopyBehind(elsewhere(record.at));
    }
    const Layout layout = writer().layout();
    close();
    save(record.offset);
    const std::filesystem::path made = path_.parent_path() / ("." + path_.filename().string() + ".rewound");
    std::filesystem::remove(made);
    Writer shorter = Writer::create(made, layout);
    Reader reader(path_);
    Messages messages = reader.messages();
    std::vector<std::byte> frames;
    for (const MessageView* message = messages.next(); message != nullptr && message->position().offset < record.offset;
         message = messages.next()) {
        const auto frame = message->frame();
        frames.insert(frames.end(), frame.begin(), frame.end());
        if (frames.size() >= BATCH) {
            shorter.appendFrames(frames);
            frames.clear();
        }
    }
    shorter.appendFrames(frames);
    const std::int64_t end = shorter.end().offset;
    shorter.close();
    if (end != record.offset) {
        std::filesystem::remove(made);
        throw CopyRefused(path_.string() +
                          " has no message that ends where the stream says that it is to be cut, at offset " +
                          std::to_string(record.offset));
    }
    std::filesystem::rename(made, path_);
    writer();
}

}  // namespace tabulo::shipping
