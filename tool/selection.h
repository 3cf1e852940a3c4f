// Which messages the user wants: the options that all verbs on messages share.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tabulo/query.h"
#include "tabulo/reader.h"
#include "tool/times.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tabulo::tool {

// The options as they were given. A message must meet each of them; of a list one value is enough, except that it must
// meet every condition of `where` and hold every word of `text`.
struct SelectionOptions {
    std::vector<std::string> seq, id, uid;  // ranges "A..B"
    std::string since, until;
    std::vector<std::string> classes, types, notTypes;
    std::string possDup;  // "yes" or "no"
    std::vector<std::string> where;
    std::vector<std::string> text;  // words of the wire message
    TimeOptions time;
    bool explain = false;
};

// Declares --seq, --id, --uid, --since, --until, --class, --type, --not-type, --poss-dup, --where, --text, --time-unit,
// --tz and --explain. Options that take a list take one value each, repeatable or with commas.
void declareSelection(CLI::App& app, SelectionOptions* options);

// The options, made ready for one table: what its footers and filters can answer is in the query, the rest is asked of
// each message.
struct Selection {
    Query query;
    std::function<bool(const MessageView&)> matches;  // empty: the query says all
    std::string pushedDown;                           // for --explain: what the query can skip blocks by
    std::string tested;                               // and what messages are tested for
};

// UsageError for what cannot be: a reversed range, ids of two classes, an unknown field (the answer lists the table's),
// an impossible time, conditions that exclude each other. `newest` is the time from which "-10m" counts.
Selection makeSelection(const SelectionOptions& options, const Layout& layout, const Times& times, std::int64_t newest);

}  // namespace tabulo::tool
