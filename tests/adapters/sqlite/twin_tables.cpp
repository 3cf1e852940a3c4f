#include "tests/adapters/sqlite/twin_tables.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>

#include "tabulo/index.h"
#include "tabulo/reader.h"

namespace tabulo::sqlite::test {

namespace {

using namespace std::string_literals;
using tabulo::test::StoredText;

constexpr std::int64_t NOVEMBER_2026 = 1'795'000'000'000;

// Texts that some comparison takes for others.
const std::vector<std::string>& confusingTexts() {
    static const std::vector<std::string> texts = {"777",
                                                   "0777",
                                                   "777.0",
                                                   "7e2",
                                                   "700",
                                                   " 12",
                                                   "12",
                                                   "12 ",
                                                   "near-1 ",
                                                   "NEAR-1",
                                                   "Near-2",
                                                   "near-3   ",
                                                   "-1",
                                                   "1",
                                                   "1.0",
                                                   "",
                                                   " ",
                                                   "a",
                                                   "A",
                                                   "a ",
                                                   "A\0"s,
                                                   "A\0b"s,
                                                   "\xff",
                                                   "a\xc3",
                                                   "\xc3\xa4",
                                                   "\xc3\x84",
                                                   "9007199254740993",
                                                   "9223372036854775807",
                                                   "0x10",
                                                   "+5",
                                                   "5",
                                                   "NULL"};
    return texts;
}

const std::vector<Layout>& twinLayouts() {
    static const std::vector<Layout> layouts = {
        {.texts = {"Symbol", "ClOrdID"}, .numbers = {"Price", "OrderQty"}},
        {.texts = {"ClOrdID", "OrderID", "Symbol"}, .numbers = {"OrderQty"}, .summarisedTexts = 3},
        {.texts = {"Symbol"}, .numbers = {"Price"}, .summarisedTexts = 0},
        {.texts = {"Symbol", "ClOrdID"}, .numbers = {"Price"}, .summarisedTexts = 1},
    };
    return layouts;
}

SqlValue textValue(const StoredText& text) {
    return text.has_value() ? SqlValue(*text) : SqlValue();
}

SqlValue numberValue(const Number& number) {
    if (const auto* integer = std::get_if<std::int64_t>(&number)) {
        return *integer;
    }
    const auto* real = std::get_if<double>(&number);
    return real == nullptr || std::isnan(*real) ? SqlValue() : SqlValue(*real);
}

std::int64_t oddTime(Random& random) {
    static const std::vector<std::int64_t> times = {0,
                                                    -1,
                                                    -999,
                                                    -1000,
                                                    1,
                                                    std::numeric_limits<std::int64_t>::max(),
                                                    std::numeric_limits<std::int64_t>::min(),
                                                    253'402'300'799'999,
                                                    253'402'300'800'000,
                                                    -62'167'219'200'000,
                                                    -62'167'219'200'001};
    return random.of(times);
}

const char* declaredType(ColumnType type) {
    switch (type) {
        case ColumnType::integer:
            return " INTEGER";
        case ColumnType::text:
            return " TEXT";
        case ColumnType::blob:
            return " BLOB";
        default:
            return "";
    }
}

}  // namespace

std::vector<TwinColumn> twinColumns(const Layout& layout) {
    std::vector<TwinColumn> columns = {{"\"table\""}};
    for (const char* name : {"uid", "seq", "prevSeq", "id"})
        columns.push_back({name, ColumnType::integer});
    columns.push_back({"class"});
    columns.push_back({"time"});
    columns.push_back({"time_raw", ColumnType::integer});
    columns.push_back({"type"});
    for (const char* name : {"possDup", "outOfSequence"})
        columns.push_back({name, ColumnType::integer});
    for (const char* name : {"text0", "text1"})
        columns.push_back({name});
    for (const std::string& name : layout.texts)
        columns.push_back({name});
    for (const std::string& name : layout.numbers)
        columns.push_back({name, ColumnType::any});
    columns.push_back({"wire", ColumnType::blob});
    columns.push_back({"nonMetadata"});
    columns.push_back({"file", ColumnType::text, true});
    columns.push_back({"block", ColumnType::integer, true});
    columns.push_back({"offset", ColumnType::integer, true});
    columns.push_back({"rowid", ColumnType::integer, true});
    return columns;
}

std::string isoText(std::int64_t time, int digits) {
    std::int64_t perSecond = 1;
    for (int i = 0; i < digits; ++i) {
        perSecond *= 10;
    }
    const std::int64_t rest = ((time % perSecond) + perSecond) % perSecond;
    const auto second = static_cast<std::time_t>(time / perSecond - (time % perSecond < 0 ? 1 : 0));
    std::tm parts{};
    if (::gmtime_r(&second, &parts) == nullptr || parts.tm_year < -1900 || parts.tm_year > 9999 - 1900) {
        return std::to_string(time);
    }
    std::array<char, 40> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%m-%dT%H:%M:%S", &parts);
    std::array<char, 80> whole{};
    std::snprintf(whole.data(), whole.size(), "%04d-%.*s.%0*dZ", parts.tm_year + 1900, static_cast<int>(size),
                  text.data(), digits, static_cast<int>(rest));
    return whole.data();
}

TwinTables::TwinTables(Connection& connection, Random& random, const std::filesystem::path& folder, int number)
    : connection_(connection), number_(number) {
    Layout layout = random.of(twinLayouts());
    columns = twinColumns(layout);
    times_ = static_cast<TwinTimes>(random.below(3));
    ascends_ = random.percent(60);
    const int fileCount = random.between(1, 3);
    const std::string name = "live" + std::to_string(number);
    std::string arguments;
    for (int i = 0; i < fileCount; ++i) {
        layout.messagesPerBlock = random.between(1, 7);
        const std::filesystem::path path = folder / (name + "-" + std::to_string(i));
        files_.push_back(std::make_unique<StoredTable>(path, layout));
        arguments += (i == 0 ? "" : ", ") + sqlText(path.string());
        words += path.filename().string() + " with blocks of " + std::to_string(layout.messagesPerBlock) + ", ";
    }
    words += ascends_ ? "uids ascend" : "uids jump";
    createKept();
    store(random, random.between(8, 70));
    const bool isGlob = random.percent(40);
    connection.must("CREATE VIRTUAL TABLE " + name + " USING tabulo(" +
                    (isGlob ? sqlText((folder / (name + "-*")).string()) : arguments) +
                    (times_ == TwinTimes::given ? ", time_unit='ms')" : ")"));
    for (const auto& file : files_) {
        if (random.percent(50)) {
            Indexer(file->writer.path()).complete();
        }
    }
    if (random.percent(30)) {
        store(random, random.between(1, 12));
    }
}

TwinTables::TwinTables(Connection& connection, const std::filesystem::path& path, int number)
    : words(path.filename().string()), connection_(connection), number_(number) {
    Reader reader(path);
    columns = twinColumns(reader.layout());
    createKept();
    for (const MessageView& view : reader.messages()) {
        const auto owned = [](const Text& text) { return text ? StoredText(*text) : StoredText(); };
        StoredMessage message{.uniformId = view.uniformId(),
                              .seqNum = view.seqNum(),
                              .prevSeqNum = view.prevSeqNum(),
                              .id = view.id(),
                              .time = view.time(),
                              .type = std::string(view.type()),
                              .possDup = view.possDup(),
                              .outOfSequence = view.outOfSequence(),
                              .text0 = owned(view.text0()),
                              .text1 = owned(view.text1()),
                              .wire = owned(view.wire()),
                              .nonMetadata = owned(view.nonMetadata())};
        for (std::size_t i = 0; i < view.textCount(); ++i)
            message.texts.push_back(owned(view.text(i)));
        for (std::size_t i = 0; i < view.numberCount(); ++i)
            message.numbers.push_back(view.number(i));
        keep(message, path, view.position(), isoText(view.time(), 6), static_cast<std::int64_t>(rows.size()));
    }
    connection.must("CREATE VIRTUAL TABLE live" + std::to_string(number) + " USING tabulo(" + sqlText(path.string()) +
                    ")");
}

void TwinTables::createKept() {
    std::string declaration;
    for (const TwinColumn& column : columns) {
        declaration +=
            column.name == "rowid" ? "" : (declaration.empty() ? "" : ", ") + column.name + declaredType(column.type);
    }
    connection_.must("CREATE TABLE kept" + std::to_string(number_) + "(" + declaration + ")");
    // The indexes that SQLite makes for a join have filters that take texts equal by RTRIM for different.
    connection_.must("PRAGMA automatic_index = OFF");
}

void TwinTables::store(Random& random, int count) {
    for (int i = 0; i < count; ++i) {
        // A file without a message tells no unit, so each gets its first one early.
        const auto number =
            static_cast<std::size_t>(rows.size() < files_.size() ? static_cast<int>(rows.size())
                                                                 : random.below(static_cast<int>(files_.size())));
        StoredTable& file = *files_[number];
        file.append(nextMessage(random, file));
        keep(file, number);
    }
}

StoredMessage TwinTables::nextMessage(Random& random, const StoredTable& file) {
    StoredMessage message = tabulo::test::randomMessage(random, file);
    uniformId_ += random.between(0, 2);
    message.uniformId = ascends_ || random.percent(70) ? uniformId_ : random.between(0, uniformId_ + 5);
    const auto small = static_cast<std::int64_t>(rows.size()) * 10 + random.between(-9, 9);
    message.time = times_ == TwinTimes::withoutUnit                   ? small
                   : times_ == TwinTimes::given && random.percent(15) ? oddTime(random)
                                                                      : NOVEMBER_2026 + small * 997;
    for (StoredText* text : {&message.text0, &message.text1, &message.wire, &message.nonMetadata}) {
        if (text->has_value() && random.percent(40)) {
            *text = random.of(confusingTexts());
        }
    }
    for (StoredText& text : message.texts) {
        if (random.percent(40)) {
            text = random.of(confusingTexts());
        }
    }
    return message;
}

void TwinTables::keep(const StoredTable& file, std::size_t fileNumber) {
    const std::size_t index = file.count() - 1;
    const StoredMessage& message = file.messages[index];
    keep(message, file.writer.path(), file.place(index),
         times_ == TwinTimes::withoutUnit ? std::to_string(message.time) : isoText(message.time, 3),
         static_cast<std::int64_t>(fileNumber << 40 | index));
}

void TwinTables::keep(const StoredMessage& message, const std::filesystem::path& path, const Position& place,
                      const std::string& time, std::int64_t rowid) {
    const auto messageClass = classOf(message.id);
    std::vector<SqlValue> row = {path.filename().string(),
                                 std::int64_t{message.uniformId},
                                 std::int64_t{message.seqNum},
                                 std::int64_t{message.prevSeqNum},
                                 std::int64_t{message.id},
                                 messageClass ? SqlValue(std::string(className(*messageClass))) : SqlValue(),
                                 time,
                                 message.time,
                                 message.type,
                                 std::int64_t{message.possDup},
                                 std::int64_t{message.outOfSequence},
                                 textValue(message.text0),
                                 textValue(message.text1)};
    for (const StoredText& text : message.texts)
        row.push_back(textValue(text));
    for (const Number& number : message.numbers)
        row.push_back(numberValue(number));
    row.push_back(message.wire ? SqlValue(Blob{*message.wire}) : SqlValue());
    row.push_back(textValue(message.nonMetadata));
    row.emplace_back(path.string());
    row.emplace_back(place.block);
    row.emplace_back(place.offset);
    row.emplace_back(rowid);
    std::string names;
    std::string marks;
    for (const TwinColumn& column : columns) {
        names += (names.empty() ? "" : ", ") + column.name;
        marks += marks.empty() ? "?" : ", ?";
    }
    connection_.must("INSERT INTO kept" + std::to_string(number_) + "(" + names + ") VALUES (" + marks + ")", row);
    rows.push_back(std::move(row));
}

}  // namespace tabulo::sqlite::test
