#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "api/call.h"
#include "api/cut_files.h"
#include "api/layout.h"
#include "api/salvage_source.h"
#include "api/stored_header.h"
#include "api/work_meter.h"
#include "messagetable/block_writer.h"
#include "storage/generic_header.h"
#include "tabulo/damage.h"

namespace tabulo {

namespace api {

namespace {

using Sources = std::vector<std::unique_ptr<SalvageSource>>;

// Where blocks begin in a file that has this layout, and names as this library stores them.
std::int64_t headerEndOf(const Layout& layout) {
    std::int64_t size =
        internal::GENERIC_HEADER_SIZE + internal::TYPE_RECORD_SIZE + internal::LAYOUT_SIZE + internal::HEADER_TAIL_SIZE;
    for (const std::vector<std::string>* names : {&layout.texts, &layout.numbers}) {
        for (const std::string& name : *names) {
            size += static_cast<std::int64_t>(sizeof(std::uint32_t) + (name.empty() ? 0 : name.size() + 1));
        }
    }
    return size;
}

bool isLostHeader(const Error& error) {
    switch (error.code()) {
        case Code::fileSize:
        case Code::signature:
        case Code::byteOrder:
        case Code::version:
        case Code::tableType:
        case Code::headerCorrupted:
        case Code::streamNotEnoughData:
        case Code::streamReadReset:
            return true;
        default:
            return false;
    }
}

// Takes the layout of the file, or the given one when the header is lost; where blocks begin.
std::int64_t takeLayout(const Call& call, const std::string& path, const std::optional<Layout>& given, Layout* layout) {
    if (given.has_value()) {
        (void)layout_numbers(*given);  // throws for one that no table has
    }
    try {
        const StoredHeader header = storedHeader_read(call, path, TableKind::messages);
        if (given.has_value() && !(*given == header.layout)) {
            call.fail(internal::CONFIG_MISMATCH_ERROR, std::nullopt, "the table's header has another layout");
        }
        *layout = header.layout;
        return header.generic.headerSize;
    } catch (const Error& error) {
        if (!given.has_value() || !isLostHeader(error)) {
            throw;
        }
    }
    *layout = *given;
    return headerEndOf(*given);
}

class Salvage {
  public:
    Salvage(const SalvageSink& sink, Sources& sources, WorkMeter& meter)
        : sink_(sink), sources_(sources), meter_(meter) {}

    void run();

    SalvageResult result;

  private:
    void giveAll(const std::vector<std::size_t>& heads);
    void giveMessage(std::size_t source);
    void giveGap(std::size_t source, const std::vector<std::size_t>& heads);
    bool hasSameMessage(std::size_t source, const std::vector<std::size_t>& heads) const;
    std::int64_t done() const;

    const SalvageSink& sink_;
    Sources& sources_;  // the table's file comes last
    WorkMeter& meter_;
    std::optional<std::int32_t> lastId_;
    std::int64_t toldAt_ = -1;  // the block in which progress was told last
};

std::int64_t Salvage::done() const {
    std::int64_t sum = 0;
    for (const auto& source : sources_) {
        sum += std::max<std::int64_t>(source->done(), 0);
    }
    return sum;
}

bool Salvage::hasSameMessage(std::size_t source, const std::vector<std::size_t>& heads) const {
    const MessageState& one = sources_[source]->item().message;
    return std::any_of(heads.begin(), heads.end(), [&](std::size_t head) {
        const SalvageItem& item = sources_[head]->item();
        return head > source && !item.isGap && item.message.message->frameLength == one.message->frameLength &&
               std::memcmp(item.message.frame, one.frame, static_cast<std::size_t>(one.message->frameLength)) == 0;
    });
}

void Salvage::giveMessage(std::size_t source) {
    const SalvageItem& item = sources_[source]->item();
    result.messages += 1;
    result.fromCutFiles += sources_[source]->isCutFile() ? 1 : 0;
    lastId_ = item.message.message->metadata.uniformId;
    if (sink_.message) {
        sink_.message(MessageView(&item.message), sources_[source]->path());
    }
    meter_.addMessage(done());
    if (item.message.position.block != toldAt_) {
        toldAt_ = item.message.position.block;
        meter_.tell(done());
    }
}

void Salvage::giveGap(std::size_t source, const std::vector<std::size_t>& heads) {
    SalvageSource& from = *sources_[source];
    const SalvageItem& item = from.item();
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        if (i != source && sources_[i]->hasInstead(item, from)) {
            return;
        }
    }
    for (const std::size_t head : heads) {
        const SalvageItem& other = sources_[head]->item();
        if (head > source && other.isGap && other.end == item.end && from.hasSame(item, *sources_[head])) {
            return;
        }
    }
    Gap gap;
    gap.file = from.path();
    gap.offset = item.begin;
    gap.length = item.end - item.begin;
    gap.uniformIdBefore = item.idBefore.has_value() ? item.idBefore : lastId_;
    gap.uniformIdBehind = item.idBehind;
    result.gaps += 1;
    result.gapBytes += gap.length;
    if (sink_.gap) {
        sink_.gap(gap);
    }
}

// The heads stand at the same place of the table; cut files, which are older, come first.
void Salvage::giveAll(const std::vector<std::size_t>& heads) {
    for (const std::size_t head : heads) {
        if (sources_[head]->item().isGap) {
            giveGap(head, heads);
        } else if (!hasSameMessage(head, heads)) {
            giveMessage(head);
        }
    }
}

void Salvage::run() {
    std::vector<std::size_t> left;
    const auto advance = [&](std::size_t source) {
        if (sources_[source]->next()) {
            left.push_back(source);
        }
    };
    meter_.tell(0);
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        advance(i);
    }
    while (!left.empty()) {
        std::int64_t first = sources_[left.front()]->item().begin;
        for (const std::size_t source : left) {
            first = std::min(first, sources_[source]->item().begin);
        }
        const auto others = std::stable_partition(
            left.begin(), left.end(), [&](std::size_t source) { return sources_[source]->item().begin == first; });
        std::vector<std::size_t> heads(left.begin(), others);
        std::sort(heads.begin(), heads.end());
        left.erase(left.begin(), others);
        giveAll(heads);
        std::for_each(heads.begin(), heads.end(), advance);
    }
    meter_.tellAll();
}

struct CutFile {
    std::pair<std::int64_t, std::int64_t> numbers;  // the offset, and which of several
    std::filesystem::path path;
};

std::vector<CutFile> cutFilesFor(const std::filesystem::path& path, const SalvageOptions& options) {
    std::vector<CutFile> files;
    for (const std::filesystem::path& file : options.cutFiles.has_value() ? *options.cutFiles : cutFilesOf(path)) {
        const auto numbers = cutFile_parseName(file.filename().string(), std::nullopt);
        if (!numbers.has_value()) {
            refuse("the name of the cut file " + file.string() + " tells no offset: it must end in .cut-<offset>");
        }
        files.push_back({*numbers, file});
    }
    std::stable_sort(files.begin(), files.end(),
                     [](const CutFile& left, const CutFile& right) { return left.numbers < right.numbers; });
    return files;
}

}  // namespace

}  // namespace api

SalvageResult salvage(const std::filesystem::path& path, const SalvageSink& sink, const SalvageOptions& options,
                      const Work& work) {
    const std::string checked = api::checkedPath(path);
    const api::Call call(path);
    auto state = std::make_shared<api::TableState>();
    const std::int64_t headerEnd = api::takeLayout(call, checked, options.layout, &state->layout);
    state->numbers = api::layout_numbers(state->layout);
    state->name = path.filename().string();
    api::WorkMeter meter(work);
    api::Sources sources;
    const auto add = [&](const std::filesystem::path& file, std::optional<std::int64_t> base) {
        sources.push_back(std::make_unique<api::SalvageSource>(call, file, base, headerEnd, state, meter));
        meter.addTotal(sources.back()->size());
    };
    for (const api::CutFile& file : api::cutFilesFor(path, options)) {
        add(file.path, file.numbers.first);
    }
    add(path, std::nullopt);
    state->footerSize = sources.back()->footerSize();
    api::Salvage run(sink, sources, meter);
    try {
        run.run();
    } catch (const api::WorkStopped&) {
        run.result.complete = false;
    }
    return run.result;
}

}  // namespace tabulo
