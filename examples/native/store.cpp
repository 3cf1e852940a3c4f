// Stores a few orders, and the last sequence number in a session info table.
//
//   example_store <folder>        makes <folder>/orders and <folder>/session, or goes on with them
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tabulo/error.h"
#include "tabulo/session_info.h"
#include "tabulo/table_info.h"
#include "tabulo/writer.h"

namespace {

// What the numbers of a session mean is the application's to say.
constexpr std::int32_t LAST_SEQ_NUM = 1;
constexpr std::array<std::int32_t, 1> TAGS = {LAST_SEQ_NUM};

std::int64_t millisecondsNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void store(const std::filesystem::path& folder) {
    tabulo::Layout layout;
    layout.texts = {"Symbol"};
    layout.numbers = {"Price"};
    auto orders = tabulo::Writer::openOrCreate(folder / "orders", layout);
    auto session = tabulo::SessionInfo::openOrCreate(folder / "session", TAGS);
    for (const std::string& warning : orders.warnings()) {
        std::fprintf(stderr, "%s\n", warning.c_str());
    }

    auto seqNum = static_cast<std::int32_t>(session.read(LAST_SEQ_NUM));
    const std::array<const char*, 3> symbols = {"ACME", "KVS", "ACME"};
    for (const char* symbol : symbols) {
        seqNum += 1;
        const std::int64_t price = 10 + seqNum;
        const std::string wire = "35=D\00155=" + std::string(symbol) + "\00144=" + std::to_string(price) + "\001";
        tabulo::Message order;
        order.uniformId = seqNum;
        order.seqNum = seqNum;
        order.id = seqNum;
        order.time = millisecondsNow();
        order.type = "D";
        order.texts = {symbol};
        order.numbers = {price};
        order.wire = wire;
        orders.append(order);  // stored before it is sent
        session.write(LAST_SEQ_NUM, seqNum);
    }
    orders.close();
    const tabulo::TableInfo info = tabulo::inspect(folder / "orders");
    std::printf("%s holds %lld messages.\n", info.name.c_str(), static_cast<long long>(info.messageCount));
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: %s <folder>\n", arguments[0]);
        return 2;
    }
    try {
        store(arguments[1]);
    } catch (const tabulo::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
