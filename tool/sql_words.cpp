#include "tool/sql_words.h"

#include <fmt/format.h>

#include <algorithm>

#include "tool/listing.h"
#include "tool/lowered.h"

namespace tabulo::tool {

namespace {

constexpr std::string_view TABLES =
    "(SELECT name, sql FROM sqlite_schema WHERE type IN ('table', 'view') AND name NOT LIKE 'sqlite@_%' ESCAPE '@'"
    " UNION ALL SELECT name, sql FROM sqlite_temp_schema WHERE type IN ('table', 'view')) AS tables";

bool isLetter(char letter) {
    return letter == '_' || (loweredLetter(letter) >= 'a' && loweredLetter(letter) <= 'z');
}

bool beginsWith(std::string_view word, std::string_view begun) {
    return word.size() >= begun.size() && std::equal(begun.begin(), begun.end(), word.begin(), [](char a, char b) {
               return loweredLetter(a) == loweredLetter(b);
           });
}

// A name that needs no quotes.
bool isPlainName(const std::string& name) {
    const auto isPart = [](char letter) { return isLetter(letter) || (letter >= '0' && letter <= '9'); };
    return !name.empty() && isLetter(name[0]) && std::all_of(name.begin(), name.end(), isPart) &&
           sqlite3_keyword_check(name.c_str(), static_cast<int>(name.size())) == 0;
}

std::vector<std::string> keywords(bool areSmall) {
    std::vector<std::string> words;
    for (int i = 0; i < sqlite3_keyword_count(); ++i) {
        const char* word = nullptr;
        int length = 0;
        if (sqlite3_keyword_name(i, &word, &length) == SQLITE_OK) {
            words.emplace_back(word, static_cast<std::size_t>(length));
            std::transform(words.back().begin(), words.back().end(), words.back().begin(),
                           [areSmall](char letter) { return areSmall ? loweredLetter(letter) : letter; });
        }
    }
    return words;
}

std::vector<std::string> names(const SqlSession& session) {
    return session.texts(fmt::format(
        "SELECT name FROM {0} UNION SELECT columns.name FROM {0} JOIN pragma_table_xinfo(tables.name) AS columns",
        TABLES));
}

}  // namespace

std::string sqlQuoted(std::string_view text, char quote) {
    std::string result(1, quote);
    for (const char letter : text) {
        result.append(letter == quote ? 2 : 1, letter);
    }
    return result + quote;
}

std::string tablesQuery() {
    return fmt::format(
        "SELECT name AS \"table\", (SELECT count(*) FROM pragma_table_info(tables.name)) AS columns, sql AS made FROM "
        "{}"
        " ORDER BY name",
        TABLES);
}

std::string columnsQuery(std::string_view table) {
    const std::string condition =
        table.empty() ? "" : fmt::format(" WHERE tables.name = {} COLLATE NOCASE", sqlQuoted(table, '\''));
    return fmt::format(
        "SELECT tables.name AS \"table\", columns.name AS \"column\", columns.type AS type,"
        " CASE columns.hidden WHEN 1 THEN 'hidden' ELSE '' END AS note"
        " FROM {} JOIN pragma_table_xinfo(tables.name) AS columns{} ORDER BY tables.name, columns.cid",
        TABLES, condition);
}

std::vector<std::string> sqlWords(const SqlSession& session, std::string_view lineInFront, std::string_view begun) {
    std::vector<std::string> words;
    if (lineInFront == ".") {
        words = {"help", "quit", "schema", "tables"};
    } else if (lineInFront.ends_with('"')) {
        for (const std::string& name : names(session)) {
            words.push_back(sqlQuoted(name, '"').substr(1));
        }
    } else {
        for (const std::string& name : names(session)) {
            if (isPlainName(name)) {
                words.push_back(name);
            } else if (beginsWith(name, begun)) {
                words.push_back(sqlQuoted(name, '"'));
            }
        }
        const std::vector<std::string> known = keywords(!begun.empty() && loweredLetter(begun[0]) == begun[0]);
        words.insert(words.end(), known.begin(), known.end());
        const std::vector<std::string> functions = session.texts("SELECT DISTINCT name FROM pragma_function_list");
        words.insert(words.end(), functions.begin(), functions.end());
    }
    std::erase_if(words, [begun](const std::string& word) {
        const bool isQuoted = word.front() == '"';  // it was compared by what stands between the quotes
        return shownText(word) != word || (!isQuoted && !beginsWith(word, begun));
    });
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    return words;
}

}  // namespace tabulo::tool
