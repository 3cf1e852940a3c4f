#include "tool/new_table.h"

#include <fmt/format.h>

#include <functional>
#include <string_view>

#include "tabulo/damage.h"
#include "tabulo/reader.h"
#include "tool/status.h"

namespace tabulo::tool {

void MessageSum::add(const MessageView& message) {
    const std::span<const std::byte> frame = message.frame();
    const std::string_view text(reinterpret_cast<const char*>(frame.data()), frame.size());
    messages += 1;
    bytes += static_cast<std::int64_t>(frame.size());
    hash = hash * 0x9E3779B97F4A7C15U + std::hash<std::string_view>()(text);  // the factor is odd: order counts
    firstUniformId = firstUniformId.has_value() ? firstUniformId : message.uniformId();
    lastUniformId = message.uniformId();
}

bool BatchWriter::add(const MessageView& message) {
    const std::span<const std::byte> frame = message.frame();
    if (frame.size() >= batchBytes_) {
        large_ = frame;
        return true;
    }
    batch_.insert(batch_.end(), frame.begin(), frame.end());
    return batch_.size() >= batchBytes_;
}

void BatchWriter::flush() {
    if (!batch_.empty()) {
        writer_.appendFrames(batch_);
        batch_.clear();
    }
    if (!large_.empty()) {
        writer_.appendFrames(large_);
        large_ = {};
    }
}

void BatchWriter::close() {
    flush();
    batch_ = {};
    writer_.close();
}

void checkNewTable(Console& console, const std::filesystem::path& path, const std::string& name,
                   const MessageSum& sum) {
    const Work work = console.watched("checking " + name);
    std::string damage;
    const VerifyResult verified = verify(
        path,
        [&](const Finding& finding) {
            if (finding.damage && damage.empty()) {
                damage = fmt::format(": {} at {}", finding.text, finding.offset);
            }
        },
        work);
    Console::checkInterrupt();
    MessageSum read;
    Reader reader(path);
    Messages messages = reader.messages({}, work);
    while (const MessageView* message = messages.next()) {
        read.add(*message);
    }
    if (verified.damages > 0 || verified.messages != sum.messages || !(read == sum)) {
        throw Failure(fmt::format("{} does not hold what was written to it, {} messages; {} of them can be read{}",
                                  name, sum.messages, read.messages, damage));
    }
}

}  // namespace tabulo::tool
