#include "tool/table_parts.h"

#include <algorithm>
#include <utility>

#include "tool/target.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t MOST_OPEN = 16;
constexpr std::size_t BATCH_BYTES = std::size_t{256} * 1024;

}  // namespace

TableParts::TableParts(std::filesystem::path folder, const Layout& layout)
    : folder_(std::move(folder)), layout_(layout) {
}

TableParts::Open& TableParts::openPart(const std::string& name) {
    const auto found = std::find_if(open_.begin(), open_.end(), [&](const Open& open) { return open.name == name; });
    if (found != open_.end()) {
        open_.splice(open_.begin(), open_, found);
        return open_.front();
    }
    if (open_.size() == MOST_OPEN) {
        open_.back().writer.close();
        open_.pop_back();
    }
    const auto [part, isNew] = parts_.try_emplace(name);
    Writer writer = isNew ? Writer::create(folder_ / name, layout_) : Writer::open(folder_ / name);
    open_.push_front({name, &part->second, BatchWriter(std::move(writer), BATCH_BYTES)});
    return open_.front();
}

void TableParts::add(const std::string& name, const MessageView& message) {
    Open& open = openPart(name);
    TablePart& part = *open.part;
    const bool isFirst = part.sum.messages == 0;
    part.firstTime = isFirst ? message.time() : std::min(part.firstTime, message.time());
    part.lastTime = isFirst ? message.time() : std::max(part.lastTime, message.time());
    part.sum.add(message);
    if (open.writer.add(message)) {
        open.writer.flush();
    }
}

void TableParts::finish(Console& console) {
    for (Open& open : open_) {
        open.writer.close();
    }
    open_.clear();
    for (const auto& [name, part] : parts_) {
        checkNewTable(console, folder_ / name, name, part.sum);
        commitFile(folder_ / name);
    }
}

}  // namespace tabulo::tool
