#include "adapters/sqlite/plan.h"

#include <algorithm>
#include <utility>

#include "adapters/sqlite/grouped_rows.h"
#include "adapters/sqlite/time_range.h"

namespace tabulo::sqlite {

namespace {

// What it takes, in units of about one message that is read: a query itself, the footer of a block, and what is spared
// by the side index.
constexpr double QUERY_COST = 10;
constexpr double BLOCK_COST = 1;
constexpr double FOUND_COST = 20;

const char* symbolOf(Comparison comparison) {
    constexpr const char* SYMBOLS[] = {"=?", " IS NULL", "<?", "<=?", ">?", ">=?"};
    return SYMBOLS[static_cast<int>(comparison)];
}

bool isBinary(sqlite3_index_info* info, int constraint) {
    return sqlite3_stricmp(sqlite3_vtab_collation(info, constraint), "BINARY") == 0;
}

std::optional<Comparison> comparisonOf(unsigned char op) {
    switch (op) {
        case SQLITE_INDEX_CONSTRAINT_EQ:
        case SQLITE_INDEX_CONSTRAINT_IS:
            return Comparison::equal;
        case SQLITE_INDEX_CONSTRAINT_ISNULL:
            return Comparison::isNull;
        case SQLITE_INDEX_CONSTRAINT_LT:
            return Comparison::below;
        case SQLITE_INDEX_CONSTRAINT_LE:
            return Comparison::atMost;
        case SQLITE_INDEX_CONSTRAINT_GT:
            return Comparison::above;
        case SQLITE_INDEX_CONSTRAINT_GE:
            return Comparison::atLeast;
        default:
            return std::nullopt;
    }
}

// Which comparisons of a column a query can answer.
struct Ability {
    bool equal = false;
    bool isNull = false;
    bool range = false;
    bool isText = false;  // is compared by a collation
};

Ability abilityOf(int column, const std::vector<Column>& columns) {
    if (column == ROWID) {
        return {.equal = true, .range = true};
    }
    const ColumnKind kind = columns[static_cast<std::size_t>(column)].kind;
    if (isInteger(kind)) {
        return {.equal = true, .isNull = true, .range = true};
    }
    switch (kind) {
        case ColumnKind::number:
            return {.equal = true, .isNull = true, .range = true};
        case ColumnKind::table:
        case ColumnKind::messageClass:
        case ColumnKind::type:
        case ColumnKind::file:
            return {.equal = true, .isNull = true, .isText = true};
        case ColumnKind::time:
        case ColumnKind::text0:
        case ColumnKind::text1:
        case ColumnKind::text:
        case ColumnKind::nonMetadata:
            return {.equal = true, .isNull = true, .range = true, .isText = true};
        case ColumnKind::wire:
            return {.isNull = true};
        default:
            return {};
    }
}

std::optional<Term> termOf(sqlite3_index_info* info, int number, const std::vector<Column>& columns) {
    const auto& constraint = info->aConstraint[number];
    const std::optional<Comparison> comparison = comparisonOf(constraint.op);
    if (constraint.usable == 0 || !comparison.has_value()) {
        return std::nullopt;
    }
    const Ability ability = abilityOf(constraint.iColumn, columns);
    const bool isRange = *comparison != Comparison::equal && *comparison != Comparison::isNull;
    const bool isAble = *comparison == Comparison::equal    ? ability.equal
                        : *comparison == Comparison::isNull ? ability.isNull
                                                            : ability.range;
    if (!isAble || (ability.isText && *comparison != Comparison::isNull && !isBinary(info, number))) {
        return std::nullopt;
    }
    sqlite3_value* value = nullptr;
    const bool isLiteral = sqlite3_vtab_rhs_value(info, number, &value) == SQLITE_OK && value != nullptr;
    if (ability.isText && isRange && !isLiteral) {
        return std::nullopt;  // compared with a number's column both would be numbers, which have another order
    }
    // The values of an IN one after another for a rowid, all at once for the others.
    const bool isList = constraint.iColumn != ROWID && sqlite3_vtab_in(info, number, 1) != 0;
    return Term{constraint.iColumn, *comparison, isList, isLiteral, 0, constraint.op == SQLITE_INDEX_CONSTRAINT_IS};
}

// The part of the messages that a term leaves, as a guess.
double shareOf(const Term& term, const std::vector<Column>& columns, double messages) {
    if (term.column == ROWID) {
        return term.comparison == Comparison::equal ? 1 / messages : 0.3;
    }
    const double values = term.isList ? 5 : 1;
    if (term.comparison != Comparison::equal) {
        return 0.3;
    }
    switch (columns[static_cast<std::size_t>(term.column)].kind) {
        case ColumnKind::uid:
        case ColumnKind::id:
            return std::min(1.0, values / messages);
        case ColumnKind::seq:
        case ColumnKind::timeRaw:
        case ColumnKind::time:
            return std::min(1.0, values * 2 / messages);
        case ColumnKind::text:
        case ColumnKind::text0:
        case ColumnKind::text1:
            return std::min(1.0, values * std::max(4.0, messages / 1000) / messages);
        default:
            return 0.1 * values;
    }
}

// True for a column by which blocks are found without reading the others.
bool isFound(const Term& term, const std::vector<Column>& columns) {
    if (term.column == ROWID) {
        return term.comparison == Comparison::equal;
    }
    switch (columns[static_cast<std::size_t>(term.column)].kind) {
        case ColumnKind::uid:
        case ColumnKind::id:
        case ColumnKind::seq:
        case ColumnKind::text:
        case ColumnKind::text0:
        case ColumnKind::text1:
            return term.comparison == Comparison::equal;
        default:
            return false;
    }
}

// Of all tables together; a guess where they are not known.
struct Size {
    double messages = 100'000;
    double blocks = 100;
    bool isIndexed = false;
};

Size sizeOf(TableSet& tables) {
    Size size{1, 1, true};
    for (const auto& file : tables.files()) {
        if (file != nullptr) {
            const double count = file->messageCount();
            size.messages += count;
            size.blocks += count / file->reader().layout().messagesPerBlock;
            size.isIndexed = size.isIndexed && file->hasIndex();
        }
    }
    return size;
}

void tellCosts(sqlite3_index_info* info, const Plan& plan, const std::vector<Column>& columns, TableSet* tables) {
    const auto [messages, blocks, isIndexed] = tables == nullptr ? Size{} : sizeOf(*tables);
    double share = 1;
    bool areFound = false;
    for (const Term& term : plan.terms) {
        share *= shareOf(term, columns, messages);
        areFound = areFound || isFound(term, columns);
    }
    const double rows = std::max(1.0, messages * share);
    const double walked = areFound && isIndexed ? FOUND_COST : blocks * BLOCK_COST;
    // What is selected stands in blocks that are read whole where no index tells its place.
    const double read = areFound && isIndexed ? rows : std::min(messages, rows * messages / blocks / 2 + rows);
    info->estimatedRows = static_cast<sqlite3_int64>(rows);
    info->estimatedCost = QUERY_COST + walked + (plan.terms.empty() ? messages : read);
    const bool isOne =
        plan.terms.size() == 1 && plan.terms[0].column == ROWID && plan.terms[0].comparison == Comparison::equal;
    info->idxFlags = isOne ? SQLITE_INDEX_SCAN_UNIQUE : 0;
}

bool areOrdered(TableSet& tables, TableFile::Key key) {
    return std::all_of(tables.files().begin(), tables.files().end(),
                       [&](const auto& file) { return file == nullptr || file->isOrdered(key); });
}

// Whether the texts of all times have the order of the times.
bool areIsoTimes(TableSet& tables) {
    std::optional<TimeUnit> common;
    for (const auto& file : tables.files()) {
        if (file == nullptr) {
            continue;
        }
        const std::optional<TimeUnit> unit = tables.unitOf(*file);
        if (!unit.has_value() || unit != common.value_or(*unit)) {
            return false;
        }
        common = unit;
        const auto [first, last] = isoTimes(*unit);
        if (!file->hasTimesWithin(first, last)) {
            return false;
        }
    }
    return true;
}

bool isEqualTo(const Plan& plan, int column) {
    return std::any_of(plan.terms.begin(), plan.terms.end(), [column](const Term& term) {
        return term.column == column && term.comparison == Comparison::equal && !term.isList;
    });
}

// The columns of ORDER BY, GROUP BY or DISTINCT, and those behind them that have one value each: none when that is not
// all that the statement uses. Whether it uses rowids is not told; it does not look for them, at least.
std::vector<GroupTerm> groupsOf(const sqlite3_index_info& info, const std::vector<Column>& columns, const Plan& plan) {
    constexpr std::size_t TOLD_COLUMNS = 63;  // one by one
    std::vector<GroupTerm> groups;
    groups.reserve(static_cast<std::size_t>(info.nOrderBy));
    for (int i = 0; i < info.nOrderBy; ++i) {
        groups.push_back({info.aOrderBy[i].iColumn, info.aOrderBy[i].desc != 0});
    }
    std::uint64_t used = info.colUsed;
    const auto isGroup = [&](const GroupTerm& group) {
        const auto column = static_cast<std::size_t>(group.column);
        used &= group.column < 0 ? used : ~(std::uint64_t{1} << std::min(column, TOLD_COLUMNS));
        return group.column >= 0 && column < TOLD_COLUMNS && GroupKeys::canTake(columns[column].kind);
    };
    bool isAll = std::all_of(groups.begin(), groups.end(), isGroup);
    for (std::size_t column = 0; isAll && column < std::min(columns.size(), TOLD_COLUMNS); ++column) {
        if ((used >> column & 1U) != 0 && isEqualTo(plan, static_cast<int>(column))) {
            groups.push_back({static_cast<int>(column), false});
            isAll = isGroup(groups.back());
        }
    }
    for (int i = 0; i < info.nConstraint; ++i) {
        isAll = isAll && info.aConstraint[i].iColumn != ROWID;
    }
    return isAll && used == 0 ? groups : std::vector<GroupTerm>{};
}

void chooseOrder(sqlite3_index_info* info, const std::vector<Column>& columns, TableSet& tables, Plan* plan) {
    if (info->nOrderBy > 0) {
        std::vector<GroupTerm> groups = groupsOf(*info, columns, *plan);
        if (!groups.empty() && haveFewValues(tables, columns, groups)) {
            plan->order = Order::groups;
            plan->groups = std::move(groups);
            info->orderByConsumed = 1;
            return;
        }
    }
    if (info->nOrderBy != 1) {
        return;
    }
    const int column = info->aOrderBy[0].iColumn;
    const bool isBackward = info->aOrderBy[0].desc != 0;
    const ColumnKind kind = column == ROWID ? ColumnKind::files : columns[static_cast<std::size_t>(column)].kind;
    if (column == ROWID) {
        plan->order = Order::rowids;
    } else if (kind == ColumnKind::uid && areOrdered(tables, TableFile::Key::uniformId)) {
        plan->order = Order::uniformIds;
    } else if (kind == ColumnKind::timeRaw && areOrdered(tables, TableFile::Key::time)) {
        plan->order = Order::times;
    } else if (kind == ColumnKind::time && areOrdered(tables, TableFile::Key::time) && areIsoTimes(tables)) {
        plan->order = Order::isoTimes;
    } else {
        return;
    }
    plan->isBackward = isBackward;
    info->orderByConsumed = 1;
}

}  // namespace

std::string describe(const Plan& plan, const std::vector<Column>& columns) {
    std::string text;
    for (const Term& term : plan.terms) {
        text += text.empty() ? "" : " AND ";
        text += term.column == ROWID ? "rowid" : columns[static_cast<std::size_t>(term.column)].name;
        text += term.isList ? " IN (?)" : symbolOf(term.comparison);
    }
    for (const GroupTerm& group : plan.groups) {
        text += std::string(text.empty() ? "" : " ") + (&group == plan.groups.data() ? "GROUP BY " : "AND ");
        text += columns[static_cast<std::size_t>(group.column)].name;
    }
    constexpr const char* ORDERS[] = {"", "rowid", "uid", "time_raw", "time"};
    if (plan.order != Order::stored && plan.order != Order::groups) {
        text += std::string(text.empty() ? "" : " ") + "ORDER BY " + ORDERS[static_cast<int>(plan.order)];
    }
    text += plan.isBackward ? std::string(text.empty() ? "" : " ") + "DESC" : "";
    return text;
}

Plan choosePlan(sqlite3_index_info* info, const std::vector<Column>& columns, TableSet* tables) {
    Plan plan;
    // LIMIT and OFFSET are left to SQLite, which steps no further than it needs: it offers them also for a WHERE that
    // compares two columns of the table, of which it tells nothing.
    for (int i = 0; i < info->nConstraint; ++i) {
        if (std::optional<Term> term = termOf(info, i, columns); term.has_value()) {
            term->argument = static_cast<int>(plan.terms.size());
            plan.terms.push_back(*term);
            info->aConstraintUsage[i].argvIndex = term->argument + 1;
        }
    }
    if (tables != nullptr) {
        chooseOrder(info, columns, *tables, &plan);
    }
    tellCosts(info, plan, columns, tables);
    return plan;
}

}  // namespace tabulo::sqlite
