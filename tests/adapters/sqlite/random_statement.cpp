#include "tests/adapters/sqlite/random_statement.h"

#include "tests/adapters/sqlite/random_condition.h"

namespace tabulo::sqlite::test {

namespace {

class Maker {
  public:
    Maker(Random& random, const std::vector<const TwinTables*>& tables)
        : random_(random), tables_(tables), conditions_(random, &made.parameters) {}

    // The kinds from 72 on join tables.
    void make(int kinds) {
        const int kind = random_.below(kinds);
        if (kind < 40) return rows();
        if (kind < 55) return aggregates();
        if (kind < 67) return groups();
        if (kind < 72) return distinct();
        if (kind < 87) return joins();
        if (kind < 95) return subqueries();
        if (kind < 98) return concatenated();
        return compounds();
    }

    RandomStatement made;

  private:
    NamedTable named(const std::string& name) {
        const int number = random_.below(2);
        return {name, tables_[static_cast<std::size_t>(number)], number};
    }
    static std::string from(const NamedTable& table) {
        return " FROM live" + std::to_string(table.number) + " AS " + table.name;
    }
    std::string where(const std::vector<NamedTable>& tables, int chance = 88) {
        return random_.percent(chance) ? " WHERE " + conditions_.any(tables) : "";
    }
    std::string someColumns(const NamedTable& table) {
        std::string text = table.name + ".uid";
        for (int i = random_.between(0, 4); i > 0; --i) {
            text += ", " + table.name + "." + conditions_.column(table).name;
        }
        return text;
    }
    // Sums whose terms can be added in any order.
    std::string exactAggregate(const NamedTable& table) {
        static const std::vector<std::string> exact = {"uid", "seq", "prevSeq", "id", "possDup", "block", "offset"};
        static const std::vector<std::string> functions = {"sum(", "avg(", "total(", "count(DISTINCT "};
        if (random_.percent(40)) {
            return random_.of(functions) + table.name + "." + random_.of(exact) + ")";
        }
        const TwinColumn& column = conditions_.column(table);
        const std::string name = table.name + "." + column.name;
        static const std::vector<std::string> ends = {"min(", "max(", "count("};
        return random_.of(ends) + keyOf(name, column) + ")";
    }
    // Where an integer and a real are equal, either may stand for both. A text that is equal to a number is one value
    // for SQLite's planner, which then sorts no more: "1" and "1.0" come in any order, unless it is an expression.
    static std::string keyOf(const std::string& name, const TwinColumn& column) {
        return column.type == ColumnType::any ? "(" + name + " + 0.0)" : "+" + name;
    }
    // A text as it is, by which few values need no sorting.
    std::string groupOf(const NamedTable& table) {
        const TwinColumn& column = conditions_.column(table);
        const std::string name = table.name + "." + column.name;
        return column.type == ColumnType::text && random_.percent(60) ? name : keyOf(name, column);
    }
    std::string limit() {
        std::string text = " LIMIT " + std::to_string(random_.between(0, 30));
        return random_.percent(40) ? text + " OFFSET " + std::to_string(random_.between(0, 30)) : text;
    }
    static std::string direction(bool down) { return down ? " DESC" : ""; }

    void rows();
    void aggregates();
    void groups();
    void distinct();
    void joins();
    void subqueries();
    void concatenated();
    void compounds();

    Random& random_;
    const std::vector<const TwinTables*>& tables_;
    RandomCondition conditions_;
};

void Maker::rows() {
    const NamedTable table = named("a");
    std::string select = "SELECT " + someColumns(table);
    const int order = random_.below(100);
    if (order < 40) {
        made.sql = select + from(table) + where({table});
    } else if (order < 70) {
        // By keys alone, of which several rows may have the same.
        static const std::vector<std::string> keys = {"uid", "uid", "time_raw", "time", "rowid", "seq", "id"};
        const std::string key = "a." + random_.of(keys);
        made.sql = select + ", " + key + " AS k" + from(table) + where({table}) + " ORDER BY " + key +
                   direction(random_.percent(50));
        made.sql += random_.percent(60) ? limit() : "";
        made.orderKeys = 1;
    } else {
        made.sql = select + from(table) + where({table}) + " ORDER BY ";
        for (int i = random_.between(0, 2); i > 0; --i) {
            made.sql += "+a." + conditions_.column(table).name + (random_.percent(10) ? " COLLATE NOCASE" : "") +
                        direction(random_.percent(50)) + ", ";
        }
        made.sql += "a.uid" + direction(random_.percent(50)) + ", a.rowid" + direction(random_.percent(50));
        made.sql += random_.percent(70) ? limit() : "";
        made.orderKeys = -1;
    }
}

void Maker::aggregates() {
    const NamedTable table = named("a");
    made.sql = "SELECT count(*)";
    for (int i = random_.between(0, 3); i > 0; --i) {
        made.sql += ", " + exactAggregate(table);
    }
    made.sql += from(table) + where({table});
}

void Maker::groups() {
    const NamedTable table = named("a");
    const std::string key = groupOf(table);
    const std::string aggregate = random_.percent(40) ? "max(a.rowid)" : exactAggregate(table);
    made.sql = "SELECT " + key + ", count(*), " + aggregate + from(table) + where({table}, 60) + " GROUP BY " + key;
    if (random_.percent(30)) {
        made.sql += " HAVING count(*) > " + std::to_string(random_.between(1, 3));
    }
    if (random_.percent(30)) {
        made.sql += " ORDER BY 2 DESC, 1" + limit();
        made.orderKeys = -1;
    }
}

void Maker::distinct() {
    const NamedTable table = named("a");
    made.sql = "SELECT DISTINCT ";
    for (int i = random_.between(0, 1); i >= 0; --i) {
        made.sql += groupOf(table) + (i == 0 ? "" : ", ");
    }
    made.sql += from(table) + where({table}, 60);
}

void Maker::joins() {
    const NamedTable left = named("a");
    const NamedTable right = named("b");
    const int kind = random_.below(3);
    made.sql = kind == 0 ? "SELECT count(*), sum(a.uid), sum(b.uid), max(b.rowid)"
                         : "SELECT " + someColumns(left) + ", " + someColumns(right);
    const bool isOrdered = kind == 2;
    made.sql += from(left) + (random_.percent(35) ? " LEFT JOIN live" : " JOIN live") + std::to_string(right.number) +
                " AS b ON " + conditions_.join(left, right);
    if (random_.percent(30)) {
        made.sql += " AND " + conditions_.simple(right);
    }
    made.sql += where({left, right}, 70);
    if (isOrdered) {
        made.sql += " ORDER BY a.uid" + direction(random_.percent(50)) + ", a.rowid, b.rowid" + limit();
        made.orderKeys = -1;
    }
}

void Maker::subqueries() {
    const NamedTable outer = named("a");
    const NamedTable inner = named("b");
    const int kind = random_.below(3);
    if (kind == 0) {
        made.sql = "SELECT " + someColumns(outer) + from(outer) + " WHERE " + (random_.percent(25) ? "NOT " : "") +
                   "EXISTS (SELECT 1" + from(inner) + " WHERE " + conditions_.join(inner, outer);
        made.sql += (random_.percent(50) ? " AND " + conditions_.simple(inner) : "") + ")";
        made.sql += random_.percent(50) ? " AND " + conditions_.simple(outer) : "";
    } else if (kind == 1) {
        made.sql = "SELECT a.rowid, (SELECT " + exactAggregate(inner) + from(inner) + " WHERE " +
                   conditions_.join(inner, outer) + ")" + from(outer);
        made.sql += where({outer});
    } else {
        static const std::vector<std::string> comparisons = {" = ", " < ", " >= ", " IS "};
        const TwinColumn& column = conditions_.columnOf(outer, ColumnType::integer);
        made.sql = "SELECT " + someColumns(outer) + from(outer) + " WHERE a." + column.name + random_.of(comparisons) +
                   "(SELECT " + (random_.percent(50) ? "min(" : "max(") + "b." +
                   conditions_.columnOf(inner, ColumnType::integer).name + ")" + from(inner);
        made.sql += where({inner}) + ")";
    }
}

void Maker::concatenated() {
    const NamedTable table = named("a");
    made.sql = "SELECT group_concat(uid, ',') FROM (SELECT a.uid" + from(table) + where({table}) + " ORDER BY a.uid" +
               direction(random_.percent(50)) + ")";
}

void Maker::compounds() {
    static const std::vector<std::string> operations = {" UNION ", " UNION ALL ", " EXCEPT ", " INTERSECT "};
    const NamedTable left = named("a");
    const NamedTable right = named("b");
    made.sql = "SELECT a." + conditions_.columnOf(left, ColumnType::integer).name + from(left) + where({left});
    made.sql +=
        random_.of(operations) + "SELECT b." + conditions_.columnOf(right, ColumnType::integer).name + from(right);
    made.sql += where({right});
}

}  // namespace

std::string RandomStatement::overKept() const {
    std::string text = sql;
    for (const char* number : {"0", "1"}) {
        const std::string live = std::string(" live") + number + " ";
        for (std::size_t at = text.find(live); at != std::string::npos; at = text.find(live, at)) {
            text.replace(at + 1, 4, "kept");
        }
    }
    return text;
}

RandomStatement randomStatement(Random& random, const std::vector<const TwinTables*>& tables) {
    Maker maker(random, tables);
    maker.make(100);
    return maker.made;
}

RandomStatement randomScan(Random& random, const std::vector<const TwinTables*>& tables) {
    Maker maker(random, tables);
    maker.make(72);
    return maker.made;
}

}  // namespace tabulo::sqlite::test
