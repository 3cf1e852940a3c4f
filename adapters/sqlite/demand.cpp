// Every rule here must select at least what SQLite's comparison does: values of other types than the column's are
// converted as SQLite converts them (its "affinity"), and where a comparison cannot be told, nothing is asked.
#include "adapters/sqlite/demand.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include "adapters/sqlite/time_range.h"
#include "adapters/sqlite/value_bytes.h"

namespace tabulo::sqlite {

namespace {

struct FreeValue {
    void operator()(sqlite3_value* value) const noexcept { sqlite3_value_free(value); }
};
using OwnedValue = std::unique_ptr<sqlite3_value, FreeValue>;

// The values of an IN, or the one of any other term, each copied. Empty when there is no memory for them.
std::vector<OwnedValue> valuesOf(const Term& term, sqlite3_value* argument) {
    std::vector<OwnedValue> values;
    if (!term.isList) {
        values.emplace_back(sqlite3_value_dup(argument));
        return values;
    }
    sqlite3_value* value = nullptr;
    for (int code = sqlite3_vtab_in_first(argument, &value); code == SQLITE_OK;
         code = sqlite3_vtab_in_next(argument, &value)) {
        values.emplace_back(sqlite3_value_dup(value));
    }
    return values;
}

// Whole numbers at or above a real one begin here; none when there are none.
std::optional<std::int64_t> ceiling(double value) {
    const double whole = std::ceil(value);
    if (whole >= 0x1p63) {
        return std::nullopt;
    }
    return whole < -0x1p63 ? INT64_MIN : static_cast<std::int64_t>(whole);
}

std::optional<std::int64_t> floorOf(double value) {
    const double whole = std::floor(value);
    if (whole < -0x1p63) {
        return std::nullopt;
    }
    return whole >= 0x1p63 ? INT64_MAX : static_cast<std::int64_t>(whole);
}

template <typename T>
void intersect(std::optional<std::set<T>>* values, std::set<T> wanted) {
    if (values->has_value()) {
        std::erase_if(wanted, [&](const T& value) { return !(*values)->contains(value); });
    }
    *values = std::move(wanted);
}

// Texts are compared up to a zero byte by a query.
std::string beforeZero(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

}  // namespace

void IntegerDemand::keep(std::int64_t from, std::int64_t to) {
    first = std::max(first, from);
    last = std::min(last, to);
    if (values.has_value()) {
        std::erase_if(*values, [this](std::int64_t value) { return value < first || value > last; });
    }
}

void IntegerDemand::keep(std::set<std::int64_t> wanted) {
    intersect(&values, std::move(wanted));
    keep(first, last);
}

Demand::Demand(sqlite3* database, const Plan& plan, const std::vector<Column>& columns, sqlite3_value** arguments)
    : columns_(columns), database_(database) {
    for (Term term : plan.terms) {
        if (term.isIdentity && sqlite3_value_type(arguments[term.argument]) == SQLITE_NULL) {
            term.comparison = Comparison::isNull;
        }
        take(term, arguments[term.argument]);
    }
}

void Demand::take(const Term& term, sqlite3_value* value) {
    const bool isRowid = term.column == ROWID;
    const ColumnKind kind = isRowid ? ColumnKind::uid : columns_[static_cast<std::size_t>(term.column)].kind;
    if (isRowid || isInteger(kind)) {
        takeInteger(&integers_[term.column], term, value);
    } else if (kind == ColumnKind::number) {
        takeNumber(&numbers_[term.column], term, value);
    } else {
        takeText(&texts_[term.column], term, value);
    }
}

// A column of whole numbers, none of them NULL: a text that looks like a number is one.
void Demand::takeInteger(IntegerDemand* demand, const Term& term, sqlite3_value* argument) {
    if (term.comparison == Comparison::isNull) {
        isEmpty_ = true;
        return;
    }
    std::set<std::int64_t> wanted;
    for (const OwnedValue& value : valuesOf(term, argument)) {
        const int type = value == nullptr ? SQLITE_NULL : sqlite3_value_numeric_type(value.get());
        const bool isInteger = type == SQLITE_INTEGER;
        if (!isInteger && type != SQLITE_FLOAT) {
            // A text or a blob is above every number; nothing compares with NULL.
            isEmpty_ = isEmpty_ || (term.comparison != Comparison::equal &&
                                    (type == SQLITE_NULL || term.comparison == Comparison::above ||
                                     term.comparison == Comparison::atLeast));
            continue;
        }
        const std::int64_t integer = sqlite3_value_int64(value.get());
        const double real = sqlite3_value_double(value.get());
        const std::optional<std::int64_t> low = isInteger ? std::optional(integer) : ceiling(real);
        const std::optional<std::int64_t> high = isInteger ? std::optional(integer) : floorOf(real);
        if (term.comparison == Comparison::equal) {
            if (low.has_value() && low == high) {
                wanted.insert(*low);
            }
        } else if (term.comparison == Comparison::below || term.comparison == Comparison::atMost) {
            high.has_value() ? demand->keep(INT64_MIN, *high) : static_cast<void>(isEmpty_ = true);
        } else {
            low.has_value() ? demand->keep(*low, INT64_MAX) : static_cast<void>(isEmpty_ = true);
        }
    }
    if (term.comparison == Comparison::equal) {
        demand->keep(std::move(wanted));
    }
    isEmpty_ = isEmpty_ || demand->isEmpty();
}

// A column without a type: what is stored is compared as it is. Texts and blobs are left to SQLite, as a text may come
// from a column for which both are compared as texts.
void Demand::takeNumber(NumberDemand* demand, const Term& term, sqlite3_value* argument) {
    if (term.comparison == Comparison::isNull) {
        demand->isNull = true;
        return;
    }
    std::set<double> wanted;
    for (const OwnedValue& value : valuesOf(term, argument)) {
        const int type = value == nullptr ? SQLITE_NULL : sqlite3_value_type(value.get());
        if (type == SQLITE_NULL) {
            isEmpty_ = isEmpty_ || term.comparison != Comparison::equal;
            continue;
        }
        if (type != SQLITE_INTEGER && type != SQLITE_FLOAT) {
            return;
        }
        // Rounding keeps the order, so that ends that are included miss nothing.
        const double real = sqlite3_value_double(value.get());
        if (term.comparison == Comparison::equal) {
            wanted.insert(real);
        } else if (term.comparison == Comparison::below || term.comparison == Comparison::atMost) {
            demand->last = std::min(demand->last.value_or(real), real);
        } else {
            demand->first = std::max(demand->first.value_or(real), real);
        }
    }
    if (term.comparison == Comparison::equal) {
        intersect(&demand->values, std::move(wanted));
    }
}

// A literal number is compared with a text column as a text; but what CAST gives is compared as a number, and cannot be
// told from it, nor can what comes from another table.
bool Demand::areLiteralsPlain() {
    if (!areLiteralsPlain_.has_value()) {
        areLiteralsPlain_ = true;
        for (sqlite3_stmt* statement = sqlite3_next_stmt(database_, nullptr); statement != nullptr;
             statement = sqlite3_next_stmt(database_, statement)) {
            const char* text = sqlite3_sql(statement);
            if (sqlite3_stmt_busy(statement) != 0 && (text == nullptr || sqlite3_strlike("%cast%", text, 0) == 0)) {
                areLiteralsPlain_ = false;
            }
        }
    }
    return *areLiteralsPlain_;
}

void Demand::takeText(TextDemand* demand, const Term& term, sqlite3_value* argument) {
    if (term.comparison == Comparison::isNull) {
        demand->isNull = true;
        return;
    }
    std::set<std::string> wanted;
    for (const OwnedValue& value : valuesOf(term, argument)) {
        const int type = value == nullptr ? SQLITE_NULL : sqlite3_value_type(value.get());
        if (type == SQLITE_NULL) {
            isEmpty_ = isEmpty_ || term.comparison != Comparison::equal;
            continue;
        }
        const bool isPlainNumber =
            (type == SQLITE_INTEGER || type == SQLITE_FLOAT) && term.isLiteral && areLiteralsPlain();
        if (type == SQLITE_BLOB || (type != SQLITE_TEXT && !isPlainNumber)) {
            return;
        }
        const std::string text = beforeZero(textOf(value.get()));
        if (term.comparison == Comparison::equal) {
            wanted.insert(text);
        } else if (term.comparison == Comparison::below || term.comparison == Comparison::atMost) {
            demand->last = demand->last.has_value() ? std::min(*demand->last, text) : text;
        } else {
            demand->first = demand->first.has_value() ? std::max(*demand->first, text) : text;
        }
    }
    if (term.comparison == Comparison::equal) {
        intersect(&demand->values, std::move(wanted));
    }
}

bool Demand::mayHold(std::size_t number, const TableFile& file, IntegerDemand* ordinals) const {
    const auto rowids = integers_.find(ROWID);
    if (rowids != integers_.end()) {
        const std::int64_t base = static_cast<std::int64_t>(number) << ROWID_FILE_SHIFT;
        IntegerDemand kept = rowids->second;
        kept.keep(base, base + (std::int64_t{1} << ROWID_FILE_SHIFT) - 1);
        if (kept.values.has_value() && !kept.values->empty()) {
            kept.keep(*kept.values->begin(), *kept.values->rbegin());
        }
        if (kept.isEmpty()) {
            return false;
        }
        ordinals->keep(kept.first - base, kept.last - base);
    }
    return std::all_of(texts_.begin(), texts_.end(), [&](const auto& entry) {
        const ColumnKind kind = columns_[static_cast<std::size_t>(entry.first)].kind;
        const TextDemand& demand = entry.second;
        if (kind != ColumnKind::table && kind != ColumnKind::file) {
            return true;
        }
        const std::string name = beforeZero(kind == ColumnKind::file ? file.path() : file.name());
        return !demand.isNull && (!demand.values.has_value() || demand.values->contains(name));
    });
}

}  // namespace tabulo::sqlite
