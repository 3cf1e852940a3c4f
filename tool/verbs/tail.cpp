#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tool/message_follower.h"
#include "tool/message_source.h"
#include "tool/printing.h"
#include "tool/tail_state.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct TailOptions {
    SourceOptions source;
    PrintingOptions printing;
    std::int64_t count = 50;
    bool follow = false;
    std::string state;
};

// Prints the last messages that are selected, of the beginning of each table up to `ends`. The walk backward finds
// where they begin, and a walk forward prints them: whatever their number, none is kept.
void printLast(MessageSource& source, MessageOutput& output, std::int64_t count, const std::vector<Stretch>& ends) {
    std::vector<Stretch> stretches;
    for (Reader& reader : source.readers()) {
        stretches.push_back({reader.begin(), reader.begin()});  // nothing
    }
    std::vector<bool> isFound(stretches.size());
    source.begin("looking back", true, ends);
    for (std::int64_t found = 0; found < count; ++found) {
        const MessageView* message = source.next();
        if (message == nullptr) {
            break;
        }
        const std::size_t table = source.table();
        stretches[table].from = message->position();
        stretches[table].before = isFound[table] ? stretches[table].before : message->next();
        isFound[table] = true;
    }
    source.explain();
    source.begin("reading", false, stretches);
    while (const MessageView* message = source.next()) {
        output.print(*message);
    }
    source.end();
}

// Where a table's last message stands, and where it will go on.
struct End {
    std::optional<TailPlace> place;
    Position next;
};

// Behind the last whole message; what is wrong behind it is told by who goes on from there.
End endOf(Reader& reader) {
    Messages messages = reader.messages(Query().backward());
    const MessageView* last = messages.next();
    return last == nullptr ? End{std::nullopt, reader.begin()} : End{placeOf(*last), last->next()};
}

// Where a table goes on that was read up to a place: at its beginning, and says so, when the message of that place
// stands there no more.
Position resumeAt(Console& console, Reader& reader, const TailPlace& place) {
    try {
        Messages messages = reader.messages(Query().from(place.position));
        const MessageView* message = messages.next();
        if (message != nullptr && placeOf(*message) == place) {
            return message->next();
        }
    } catch (const Error&) {
        // No message can stand there.
    }
    console.say(
        fmt::format("{} was emptied or replaced since: it is read from its beginning", shownPath(reader.path())));
    return reader.begin();
}

// Where each table is followed from; none for one that is not.
using Starts = std::vector<std::optional<Position>>;

// That, when there is a state of before.
Starts resume(Console& console, MessageSource& source, TailPlaces* state) {
    Starts starts;
    for (Reader& reader : source.readers()) {
        std::optional<TailPlace>& place = (*state)[tailName(reader.path())];
        const Position from = place.has_value() ? resumeAt(console, reader, *place) : reader.begin();
        place = from == reader.begin() ? std::nullopt : place;
        starts.emplace_back(from);
    }
    return starts;
}

// The same when there is none: the last messages are printed, and what comes behind them is followed. A table that is
// damaged at its end is left out.
Starts start(Console& console, MessageSource& source, MessageOutput& output, std::int64_t count, TailPlaces* state) {
    Starts starts;
    std::vector<Stretch> ends;
    for (Reader& reader : source.readers()) {
        try {
            const End end = endOf(reader);
            (*state)[tailName(reader.path())] = end.place;
            starts.emplace_back(end.next);
            ends.push_back({std::nullopt, end.next});
        } catch (const Error& error) {
            console.warn(error.what());
            starts.emplace_back();
            ends.push_back({reader.begin(), reader.begin()});
        }
    }
    printLast(source, output, count, ends);
    return starts;
}

void run(Console& console, const TailOptions& options) {
    const MessageFormat format = messageFormatNamed(options.printing.format);
    std::optional<TailPlaces> before;
    if (!options.state.empty()) {
        before = readTailState(options.state);
    }
    NewTables newTables(options.source.files);  // what comes from now on
    MessageSource source(console, options.source, {.areShown = showsTimes(format), .countFromNow = options.follow},
                         options.follow && newTables.watchesFolders() ? NoTables::awaited : NoTables::refused);
    MessageOutput output(console, options.printing, source.names());
    if (source.readers().empty()) {
        console.say("there is no table yet: those that are added to the folder are followed");
    } else {
        output.begin(source.times(), source.layouts());
    }
    if (!options.follow && options.state.empty()) {
        printLast(source, output, options.count, {});
        return;
    }
    TailPlaces state = before.value_or(TailPlaces());
    const Starts starts =
        before.has_value() ? resume(console, source, &state) : start(console, source, output, options.count, &state);
    MessageFollower follower(console, source, output, options.state, &state);
    for (std::size_t i = 0; i < starts.size(); ++i) {
        if (starts[i].has_value()) {
            follower.add(i, *starts[i]);
        }
    }
    if (options.follow) {
        follower.watch(std::move(newTables));
    }
    follower.settle();
    follower.run(!options.follow);
}

}  // namespace

const Verb tailVerb{"tail", "Prints the last messages, and follows",
                    "  # what a session does now\n"
                    "  tabulo tail -f orders\n"
                    "  # every reject once, over any number of runs\n"
                    "  tabulo tail -f --state rejects.state --type 3,j -o ndjson orders\n"
                    "  # the last ten messages of a folder of tables\n"
                    "  tabulo tail -n 10 /var/data/tables",
                    [](CLI::App& app) {
                        auto options = std::make_shared<TailOptions>();
                        declareSource(app, &options->source);
                        declarePrinting(app, &options->printing);
                        app.add_option("-n,--lines", options->count, "How many messages (50)")
                            ->check(CLI::NonNegativeNumber)
                            ->type_name("N");
                        app.add_flag("-f,--follow", options->follow, "Go on with what is stored from now on");
                        app.add_option("--state", options->state,
                                       "Go on where the run before has ended, which this file tells")
                            ->type_name("FILE");
                        return std::function<void(Console&)>([options](Console& console) { run(console, *options); });
                    }};

}  // namespace tabulo::tool
