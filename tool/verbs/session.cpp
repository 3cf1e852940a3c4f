// session: the values of session info tables.
#include "tabulo/session_info.h"

#include <fmt/format.h>

#include <charconv>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tool/listing.h"
#include "tool/table_cells.h"
#include "tool/tables.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct SessionOptions {
    std::vector<std::string> files;
    std::vector<std::string> names;
    ListFormat format = ListFormat::text;
};

using TagNames = std::map<std::int32_t, std::string>;

// "1=sent" and so on.
TagNames parseNames(const std::vector<std::string>& texts) {
    TagNames names;
    for (const std::string& text : texts) {
        std::int32_t tag = 0;
        const char* const end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data(), end, tag);
        if (parsed.ec != std::errc() || parsed.ptr == end || *parsed.ptr != '=' || parsed.ptr + 1 == end) {
            throw UsageError(fmt::format("--names: '{}' is no tag with a name; write 1=sent", shownText(text)));
        }
        if (!names.emplace(tag, std::string(parsed.ptr + 1, end)).second) {
            throw UsageError(fmt::format("--names: tag {} has two names", tag));
        }
    }
    return names;
}

void addTable(const std::filesystem::path& path, const TagNames& names, Listing& listing, TagNames* unused) {
    const SessionInfo session = SessionInfo::open(path);
    for (const SessionValue& value : session.values()) {
        const auto name = names.find(value.tag);
        unused->erase(value.tag);
        listing.add({{session.table()},
                     {path.lexically_normal().string()},
                     {std::int64_t{value.tag}},
                     {name == names.end() ? ListValue() : ListValue(name->second)},
                     {value.value}});
    }
}

void show(Console& console, const SessionOptions& options) {
    const TagNames names = parseNames(options.names);
    TagNames unused = names;
    const std::string nameTitle = names.empty() ? "" : "NAME";
    Listing listing(console, options.format,
                    {{"table", ""}, {"path", "TABLE"}, {"tag", "TAG"}, {"name", nameTitle}, {"value", "VALUE"}});
    std::size_t tables = 0;
    for (const NamedFile& file : expandPaths(console, options.files)) {
        Console::checkInterrupt();
        try {
            addTable(file.path, names, listing, &unused);
            ++tables;
        } catch (const Error& error) {
            if (error.code() != Code::tableType || !isOfKind(file.path, TableKind::messages)) {
                skipOrThrow(console, file);
            } else if (!file.fromFolder) {
                refuseKind(file.path, TableKind::messages);
            }
        }
    }
    listing.end();
    if (tables == 0) {
        throw Failure("there is no session info table to read");
    }
    for (const auto& [tag, name] : unused) {
        console.say(fmt::format("no table has tag {}, which --names calls {}", tag, shownText(name)));
    }
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<SessionOptions>();
    app.add_option("files", options->files, "Session info tables, or folders of them")->type_name("FILE")->required();
    app.add_option("--names", options->names, "What the tags mean, as 1=sent,2=received")
        ->type_name("TAG=NAME")
        ->delimiter(',')
        ->allow_extra_args(false);
    declareListFormat(app, &options->format);
    return [options](Console& console) { show(console, *options); };
}

}  // namespace

const Verb sessionVerb{"session", "Shows the values of session info tables",
                       "  # tags and values\n"
                       "  tabulo session client1.session\n"
                       "  # with names for the tags\n"
                       "  tabulo session client1.session --names 1=sent,2=received\n",
                       declare};

}  // namespace tabulo::tool
