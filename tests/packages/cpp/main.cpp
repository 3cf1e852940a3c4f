// Stores orders, asks for some of them and follows all: consumer <folder>, which holds no table yet.
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "tabulo/error.h"
#include "tabulo/follower.h"
#include "tabulo/query.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"

namespace {

void store(const std::filesystem::path& table) {
    tabulo::Layout layout;
    layout.texts = {"Symbol"};
    auto orders = tabulo::Writer::openOrCreate(table, layout);
    int id = 0;
    const std::array<const char*, 3> symbols = {"ACME", "KVS", "ACME"};
    for (const char* symbol : symbols) {
        id += 1;
        const std::string wire = std::string("35=D\00155=") + symbol + "\001";
        tabulo::Message order;
        order.uniformId = id;
        order.seqNum = id;
        order.id = id;
        order.type = "D";
        order.texts = {symbol};
        order.wire = wire;
        orders.append(order);
    }
    orders.close();
}

int asked(const std::filesystem::path& table) {
    int count = 0;
    tabulo::Reader reader(table);
    for (const tabulo::MessageView& message :
         reader.messages(tabulo::Query().text("Symbol", tabulo::TextCondition::anyOf({"ACME"})))) {
        count += message.wire() == std::string_view("35=D\00155=ACME\001") ? 1 : 0;
    }
    return count;
}

int followed(const std::filesystem::path& table) {
    tabulo::Follower follower;
    follower.add(table);
    int count = 0;
    while (follower.next(std::chrono::seconds(0)).kind == tabulo::FollowEventKind::message) {
        count += 1;
    }
    return count;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fputs("consumer <folder>\n", stderr);
        return 2;
    }
    try {
        const auto table = std::filesystem::path(arguments[1]) / "orders";
        store(table);
        std::printf("stored 3, found %d, followed %d\n", asked(table), followed(table));
        return 0;
    } catch (const tabulo::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
