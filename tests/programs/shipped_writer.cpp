// Writes the messages of an engine, for tests that ship its tables: ids 1, 2, 3... over all tables of a folder, the
// values of a session info table behind them.
//
//   shipped_writer <folder> <last id> [option=value...]
//
//   tables=a,b     the message tables that this run writes (orders,fills), those of all ids by turns; made when missing
//   session=name   the session info table (session): tag 1 the newest id, tag 2 the number of messages of this run
//   rate=N         messages a second; without it as fast as it can
//   block=N        messagesPerBlock of the tables that it makes (1000)
//   layout=2       the tables that it makes have the fields of another engine
//   drop=a         empties this table first
//   recreate=a     deletes this table first
//   long=N         every 1000th message has a text of so many bytes
//
// The content of a message follows from its id alone. The first id is the one behind the newest that a table has, so a
// run goes on where one that was killed has ended; after a drop, the session info table still knows it.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tabulo/session_info.h"
#include "tabulo/table_info.h"
#include "tabulo/writer.h"

namespace {

using namespace tabulo;

std::int32_t numberIn(const std::string& text) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw std::runtime_error(text + " is no number");
    }
    return number;
}

std::vector<std::string> namesIn(const std::string& text) {
    std::vector<std::string> names;
    std::size_t at = 0;
    while (at <= text.size()) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        names.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return names;
}

struct Options {
    std::filesystem::path folder{};
    std::int32_t lastId = 0;
    std::map<std::string, std::string> given{{"tables", "orders,fills"}, {"session", "session"}, {"block", "1000"}};

    Options(int argc, char** argv) : folder(argv[1]), lastId(numberIn(argv[2])) {
        for (int n = 3; n < argc; ++n) {
            const std::string text = argv[n];
            const std::size_t at = std::min(text.find('='), text.size() - 1);
            given[text.substr(0, at)] = text.substr(at + 1);
        }
    }

    std::int32_t number(const std::string& name) const {
        const auto found = given.find(name);
        return found == given.end() ? 0 : numberIn(found->second);
    }
    bool names(const std::string& name, const std::string& table) const {
        const auto found = given.find(name);
        return found != given.end() && found->second == table;
    }
    Layout layout() const {
        Layout layout{.texts = {"ClOrdID", "Symbol"}, .numbers = {"OrderQty", "Price"}};
        if (number("layout") == 2) {
            layout = {.texts = {"ClOrdID", "Account", "Order ID.%"}, .numbers = {"LastQty"}};
        }
        layout.messagesPerBlock = number("block");
        return layout;
    }
};

// A message of which everything follows from its id.
class Content {
  public:
    const Message& of(std::int32_t id, const Layout& layout, std::int32_t longText) {
        static constexpr MessageClass classes[] = {MessageClass::appTo, MessageClass::appFrom, MessageClass::adminTo,
                                                   MessageClass::adminFrom, MessageClass::resent};
        static constexpr std::string_view types[] = {"D", "8", "0", "A", "U1"};
        std::minstd_rand random(static_cast<std::uint32_t>(id));
        const std::size_t kind = random() % 100 < 90 ? random() % 2 : random() % 5;
        orderId_ = "ORDER-" + std::to_string(id);
        const std::size_t length = longText > 0 && id % 1000 == 0 ? static_cast<std::size_t>(longText) : random() % 120;
        wire_.resize(length);
        std::generate(wire_.begin(), wire_.end(), [&] { return static_cast<char>('!' + random() % 90); });
        message_ = {};
        message_.uniformId = id;
        message_.seqNum = id;
        message_.id = firstId(classes[kind]) + id;
        message_.time = 1'763'850'000'000 + id;
        message_.type = types[kind];
        message_.possDup = random() % 50 == 0;
        message_.texts.resize(layout.texts.size());
        message_.texts[0] = orderId_;
        message_.texts[1] = random() % 2 == 0 ? "MSFT" : "AAPL";
        message_.numbers.resize(layout.numbers.size());
        message_.numbers[0] = static_cast<std::int64_t>(random() % 1000);
        message_.numbers.back() = static_cast<double>(random() % 10000) / 100;
        message_.wire = wire_;
        return message_;
    }

  private:
    std::string orderId_;
    std::string wire_;
    Message message_;
};

struct Table {
    Layout layout;
    Writer writer;
};

Table opened(const Options& options, const std::string& name) {
    const std::filesystem::path path = options.folder / name;
    if (options.names("recreate", name)) {
        std::filesystem::remove(path);
    }
    const bool isNew = !std::filesystem::exists(path) || std::filesystem::file_size(path) == 0;
    Writer writer = isNew ? Writer::openOrCreate(path, options.layout()) : Writer::open(path);
    if (options.names("drop", name)) {
        writer.drop();
    }
    Layout layout = writer.layout();
    return {std::move(layout), std::move(writer)};
}

// The newest id of any table in the folder, and of the session. Files with a '.' in their names are none, or not asked.
std::int32_t newestId(const Options& options, const SessionInfo& session) {
    auto newest = static_cast<std::int32_t>(session.read(1));
    for (const auto& entry : std::filesystem::directory_iterator(options.folder)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && entry.file_size() > 0 && name.find('.') == std::string::npos) {
            newest = std::max(newest, inspect(entry.path()).lastUniformId.value_or(0));
        }
    }
    return newest;
}

void run(const Options& options) {
    const std::int32_t tags[] = {1, 2};
    SessionInfo session = SessionInfo::openOrCreate(options.folder / options.given.at("session"), tags);
    std::int32_t id = newestId(options, session);
    std::vector<Table> tables;
    for (const std::string& name : namesIn(options.given.at("tables"))) {
        tables.push_back(opened(options, name));
        id = std::max(id, inspect(options.folder / name).lastUniformId.value_or(0));
    }
    Content content;
    const std::int32_t rate = options.number("rate");
    const auto begin = std::chrono::steady_clock::now();
    std::minstd_rand random(static_cast<std::uint32_t>(id));
    for (std::int32_t count = 1; id < options.lastId; ++count) {
        ++id;
        if (rate > 0) {
            std::this_thread::sleep_until(begin + std::chrono::microseconds(1'000'000LL * count / rate));
        }
        Table& table = tables[random() % tables.size()];
        table.writer.append(content.of(id, table.layout, options.number("long")));
        const SessionValue values[] = {{1, id}, {2, count}};
        session.write(values);
    }
    for (Table& table : tables) {
        table.writer.close();
    }
    session.close();
    std::printf("%d\n", id);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("shipped_writer <folder> <last id> [option=value...]\n", stderr);
        return 2;
    }
    try {
        run(Options(argc, argv));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
