// verify: whether all that can be checked in tables is right, and where it is not.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/damage.h"
#include "tabulo/session_info.h"
#include "tool/finding_names.h"
#include "tool/listing.h"
#include "tool/status.h"
#include "tool/table_cells.h"
#include "tool/tables.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct VerifyOptions {
    std::vector<std::string> files;
    ListFormat format = ListFormat::text;
};

// What was found in one table.
struct Verdict {
    std::optional<TableKind> kind = TableKind::messages;  // none when the header does not tell
    VerifyResult result{};
    std::int64_t values = 0;  // of a session info table
};

// Prints findings and verdicts.
class Report {
  public:
    Report(Console& console, ListFormat format) : console_(console), format_(format) {}

    void finding(const std::filesystem::path& path, std::string_view kind, const Finding& finding) {
        if (format_ == ListFormat::text) {
            showFinding(path, kind, finding);
            return;
        }
        ListRecord record = recordOf("finding", path);
        record.add("kind", "", {std::string(kind)});
        record.add("damage", "", {finding.damage});
        record.add("block", "", {optionalValue(finding.block)});
        record.add("offset", "", {finding.offset});
        record.add("intactBefore", "", {finding.intactBefore});
        record.add("intactBehind", "", {finding.intactBehind});
        record.add("text", "", {finding.text});
        printRecord(console_, format_, record.columns, record.row);
    }

    void verdict(const std::filesystem::path& path, const Verdict& verdict) {
        const bool isSound = verdict.result.damages == 0;
        if (format_ == ListFormat::text) {
            showVerdict(path, verdict);
        } else {
            const bool isKnown = verdict.kind.has_value();
            const bool isSession = verdict.kind == TableKind::sessionInfo;
            const auto ofMessages = [&](std::int64_t value) {
                return verdict.kind == TableKind::messages ? ListValue(value) : ListValue();
            };
            ListRecord record = recordOf("table", path);
            record.add("kind", "",
                       {isKnown ? ListValue(std::string(isSession ? "session" : "messages")) : ListValue()});
            record.add("sound", "", {isSound});
            record.add("blocks", "", {ofMessages(verdict.result.blocks)});
            record.add("messages", "", {ofMessages(verdict.result.messages)});
            record.add("bytes", "", {verdict.result.bytes});
            record.add("damages", "", {verdict.result.damages});
            record.add("notes", "", {verdict.result.notes});
            printRecord(console_, format_, record.columns, record.row);
        }
        console_.flush();
        if (!isSound) {
            console_.warn(fmt::format("{} is damaged", shownPath(path)));
        }
    }

  private:
    static ListRecord recordOf(const std::string& record, const std::filesystem::path& path) {
        ListRecord row;
        row.add("record", "", {record});
        row.add("table", "", {path.filename().string()});
        row.add("path", "", {path.lexically_normal().string()});
        return row;
    }

    // Lines are not cut: what is wrong stands at their end.
    void showFinding(const std::filesystem::path& path, std::string_view kind, const Finding& finding) {
        const std::string_view word = finding.damage ? "damage" : "note";
        const bool isRed = finding.damage && console_.hasColour();
        std::string line = fmt::format("{}: {}{}{} at {}, {}: {}", shownPath(path), isRed ? "\x1b[31m" : "", word,
                                       isRed ? "\x1b[0m" : "", finding.offset, kind, shownText(finding.text));
        if (finding.block.has_value()) {
            line += fmt::format(" (block at {}; whole messages of it: {} in front, {} behind)", *finding.block,
                                finding.intactBefore, finding.intactBehind);
        }
        console_.write(line + '\n');
    }

    void showVerdict(const std::filesystem::path& path, const Verdict& verdict) {
        const VerifyResult& result = verdict.result;
        std::string line = fmt::format("{}: ", shownPath(path));
        line += result.damages == 0   ? "sound"
                : result.damages == 1 ? "1 damage"
                                      : fmt::format("{} damages", result.damages);
        if (result.notes > 0) {
            line += fmt::format(", {} note{}", result.notes, result.notes == 1 ? "" : "s");
        }
        if (verdict.kind == TableKind::messages) {
            line += fmt::format("; {} blocks, {} whole messages, {}", result.blocks, result.messages,
                                shownBytes(result.bytes));
        } else if (verdict.kind == TableKind::sessionInfo) {
            line += fmt::format("; {} values, {}", verdict.values, shownBytes(result.bytes));
        } else {
            line += fmt::format("; {} that cannot be checked without a header", shownBytes(result.bytes));
        }
        console_.write(line + '\n');
    }

    Console& console_;
    ListFormat format_;
};

Verdict verifySession(const TableInfo& info, Report& report) {
    Verdict verdict{.kind = TableKind::sessionInfo, .result = {}};
    verdict.result.bytes = info.fileSize;
    verdict.values = static_cast<std::int64_t>(info.tags.size());
    const auto damaged = [&](std::string_view kind, std::int64_t offset, std::string text) {
        Finding finding;
        finding.offset = offset;
        finding.text = std::move(text);
        report.finding(info.path, kind, finding);
        verdict.result.damages += 1;
    };
    if (!info.closedCleanly) {
        damaged("values", info.headerSize,
                fmt::format("{} bytes stand behind the header, where {} values take {}",
                            info.fileSize - info.headerSize, verdict.values, verdict.values * 8));
        return verdict;
    }
    try {
        static_cast<void>(SessionInfo::open(info.path).values());
    } catch (const Error& error) {
        damaged(error.code() == Code::headerCorrupted ? "header" : "values", error.offset().value_or(0), error.what());
    }
    return verdict;
}

Verdict verifyMessages(Console& console, const std::filesystem::path& path, Report& report) {
    Verdict verdict;
    verdict.result = verify(
        path, [&](const Finding& finding) { report.finding(path, findingName(finding.kind), finding); },
        console.watched("checking " + shownPath(path)));
    Console::checkInterrupt();
    return verdict;
}

// True for a file that begins as a table does, but whose header tells no layout.
bool isHeaderLost(Code code) noexcept {
    constexpr std::array CODES = {Code::headerCorrupted, Code::tableType,         Code::streamNotEnoughData,
                                  Code::noData,          Code::stringFieldsLimit, Code::numericFieldsLimit,
                                  Code::consistency,     Code::streamReadReset};
    return std::find(CODES.begin(), CODES.end(), code) != CODES.end();
}

// The verdict on such a file.
Verdict lostHeader(const std::filesystem::path& path, const Error& error, Report& report) {
    Verdict verdict;
    verdict.kind.reset();
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(path, unknown);
    verdict.result.bytes = unknown ? 0 : static_cast<std::int64_t>(size);
    verdict.result.damages = 1;
    Finding finding;
    finding.kind = FindingKind::header;
    const std::string_view why = error.code() == Code::tableType ? "its kind is neither messages nor session infos"
                                 : error.detail().empty()        ? codeText(error.code())
                                                                 : std::string_view(error.detail());
    finding.text = fmt::format("it tells no layout: {}", why);
    report.finding(path, "header", finding);
    return verdict;
}

// False when a file that was named cannot be checked at all.
bool verifyFile(Console& console, const NamedFile& file, bool isOnly, Report& report) {
    try {
        std::optional<TableInfo> info;
        try {
            info = inspect(file.path);
        } catch (const Error& error) {
            if (!isHeaderLost(error.code())) {
                throw;
            }
            report.verdict(file.path, lostHeader(file.path, error, report));
            return true;
        }
        report.verdict(file.path, info->kind == TableKind::sessionInfo ? verifySession(*info, report)
                                                                       : verifyMessages(console, file.path, report));
    } catch (const Error& error) {
        console.flush();
        if (error.code() == Code::vseek) {
            console.warn(fmt::format("{} was emptied while it was checked", shownPath(file.path)));
        } else if (file.fromFolder) {
            console.warn(fmt::format("left out: {}", error.what()));
        } else if (isOnly) {
            throw;
        } else {
            console.say(error.what());
            return false;
        }
    }
    return true;
}

void run(Console& console, const VerifyOptions& options) {
    Report report(console, options.format);
    const std::vector<NamedFile> files = expandPaths(console, options.files);
    if (files.empty()) {
        throw Failure("there is no table to check");
    }
    std::size_t failed = 0;
    for (const NamedFile& file : files) {
        Console::checkInterrupt();
        failed += verifyFile(console, file, files.size() == 1, report) ? 0U : 1U;
    }
    if (failed > 0) {
        throw Failure(fmt::format("{} of {} files could not be checked", failed, files.size()));
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<VerifyOptions>();
    app.add_option("files", options->files, "Tables of both kinds, or folders of them")->type_name("FILE")->required();
    declareListFormat(app, &options->format);
    return [options](Console& console) { run(console, *options); };
}

}  // namespace

const Verb verifyVerb{"verify", "Checks everything in tables that can be checked",
                      "  # a table: every block against its messages, and the header; 3 when it is damaged\n"
                      "  tabulo verify orders\n"
                      "  # the damage in a folder of tables, for a program\n"
                      "  tabulo verify data -o ndjson | jq 'select(.damage)'\n",
                      declare};

}  // namespace tabulo::tool
