#include "tests/api/damaged_table.h"

#include <algorithm>

#include "tabulo/writer.h"

namespace tabulo::test {

namespace {

constexpr std::size_t WORD = 8;

std::size_t storedName(const std::string& name) {
    return 4 + (name.empty() ? 0 : name.size() + 1);
}

}  // namespace

TablePlan::TablePlan(const Layout& layout, const std::vector<std::vector<std::byte>>& messages) {
    headerEnd = 140;
    for (const std::string& name : layout.texts) {
        headerEnd += storedName(name);
    }
    for (const std::string& name : layout.numbers) {
        headerEnd += storedName(name);
    }
    const auto filters =
        static_cast<std::size_t>(layout.summarisedTexts.value_or(static_cast<std::int32_t>(layout.texts.size()) + 2));
    footerSize = 140 + 18 * layout.numbers.size() + 1256 * filters;
    end = headerEnd;
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const auto perBlock = static_cast<std::size_t>(layout.messagesPerBlock);
        if (i % perBlock == 0) {
            blocks.push_back(end);
            end += WORD;
        }
        frames.push_back({end, end + messages[i].size()});
        end += messages[i].size();
        if (i % perBlock == perBlock - 1) {
            footers.push_back({end, end + footerSize});
            end += footerSize;
        }
    }
}

std::vector<std::vector<std::byte>> eachFrame(const Layout& layout, std::int32_t last) {
    std::vector<std::vector<std::byte>> frames;
    for (std::int32_t n = 1; n <= last; ++n) {
        frames.push_back(simpleFrames(layout, n, n));
    }
    return frames;
}

void writeTable(const std::filesystem::path& path, const Layout& layout,
                const std::vector<std::vector<std::byte>>& frames) {
    Writer writer = Writer::create(path, layout);
    for (const std::vector<std::byte>& frame : frames) {
        writer.appendFrames(frame);
    }
    writer.close();
}

bool isCheckedDamage(const TablePlan& plan, const Bytes& sound, const Bytes& image) {
    const auto differs = [&](std::size_t begin, std::size_t end) {
        return !std::equal(sound.begin() + static_cast<std::ptrdiff_t>(begin),
                           sound.begin() + static_cast<std::ptrdiff_t>(end),
                           image.begin() + static_cast<std::ptrdiff_t>(begin));
    };
    const auto lacksBits = [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            if ((sound[i] & ~image[i]) != 0) {
                return true;
            }
        }
        return false;
    };
    bool checked = differs(plan.headerEnd - 80, plan.headerEnd);
    for (const std::size_t block : plan.blocks) {
        checked = checked || differs(block, block + 8);
    }
    for (const Stretch& frame : plan.frames) {
        checked = checked || differs(frame.begin, frame.begin + 4) || differs(frame.end - 4, frame.end);
    }
    for (const Stretch& footer : plan.footers) {
        const std::size_t filters = footer.begin + 2 * (36 + 18);
        checked = checked || differs(footer.begin, filters) || differs(footer.end - 68, footer.end);
        for (std::size_t filter = filters; filter < footer.end - 68; filter += 1256) {
            checked = checked || differs(filter, filter + 4) || lacksBits(filter + 4, filter + 1256);
        }
    }
    return checked;
}

std::string Verified::text() const {
    std::string text = std::to_string(result.messages) + " messages in " + std::to_string(result.blocks) + " blocks\n";
    for (const Finding& finding : findings) {
        text += std::string(finding.damage ? "damage" : "note") + " of kind " +
                std::to_string(static_cast<int>(finding.kind)) + " at " + std::to_string(finding.offset) +
                " of block " + std::to_string(finding.block.value_or(-1)) + ": " + finding.text + " (" +
                std::to_string(finding.intactBefore) + ", " + std::to_string(finding.intactBehind) + ")\n";
    }
    return text;
}

std::vector<Finding> Verified::damages() const {
    std::vector<Finding> damages;
    std::copy_if(findings.begin(), findings.end(), std::back_inserter(damages),
                 [](const Finding& finding) { return finding.damage; });
    return damages;
}

Verified verifyAll(const std::filesystem::path& path) {
    Verified verified;
    verified.result = verify(path, [&](const Finding& finding) { verified.findings.push_back(finding); });
    return verified;
}

std::vector<std::int32_t> Salvaged::ids() const {
    std::vector<std::int32_t> ids;
    for (const Item& item : messages) {
        ids.push_back(item.uniformId);
    }
    return ids;
}

std::string Salvaged::text() const {
    std::string text = "messages";
    for (const Item& item : messages) {
        text += " " + std::to_string(item.uniformId) + "@" + std::to_string(item.position.offset);
    }
    for (const Gap& gap : gaps) {
        text += "\ngap of " + std::to_string(gap.length) + " at " + std::to_string(gap.offset) + " between " +
                std::to_string(gap.uniformIdBefore.value_or(-1)) + " and " +
                std::to_string(gap.uniformIdBehind.value_or(-1)) + " in " + gap.file.filename().string();
    }
    return text;
}

Salvaged salvageAll(const std::filesystem::path& path, const SalvageOptions& options) {
    Salvaged salvaged;
    SalvageSink sink;
    sink.message = [&](const MessageView& message, const std::filesystem::path& file) {
        Salvaged::Item item;
        for (const std::byte byte : message.frame()) {
            item.frame.push_back(static_cast<std::uint8_t>(byte));
        }
        item.uniformId = message.uniformId();
        item.position = message.position();
        item.ordinal = message.ordinal();
        item.file = file;
        salvaged.messages.push_back(std::move(item));
    };
    sink.gap = [&](const Gap& gap) { salvaged.gaps.push_back(gap); };
    salvaged.result = salvage(path, sink, options);
    return salvaged;
}

Stretch damageAtRandom(Bytes* image, std::size_t begin, std::mt19937* random) {
    const auto below = [&](std::size_t count) { return static_cast<std::size_t>((*random)()) % count; };
    Stretch stretch;
    stretch.begin = begin + below(image->size() - begin);
    switch (below(4)) {
        case 0:
            stretch.end = stretch.begin + 1;
            break;
        case 1:
            stretch.end = stretch.begin + 1 + below(8);
            break;
        case 2:
            stretch.begin = std::max(begin, stretch.begin / 512 * 512);
            stretch.end = stretch.begin / 512 * 512 + 512;
            break;
        default:
            stretch.end = stretch.begin + 1 + below(6000);
            break;
    }
    stretch.end = std::min(stretch.end, image->size());
    const bool zeros = below(2) == 0;
    for (std::size_t i = stretch.begin; i < stretch.end; ++i) {
        (*image)[i] = zeros ? 0 : static_cast<std::uint8_t>((*random)());
    }
    return stretch;
}

std::string stretchesText(const std::vector<Stretch>& stretches) {
    std::string text;
    for (const Stretch& stretch : stretches) {
        text += " " + std::to_string(stretch.begin) + "-" + std::to_string(stretch.end);
    }
    return text;
}

}  // namespace tabulo::test
