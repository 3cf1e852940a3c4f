// Asks a table for the messages about a symbol, newest first, whatever else its layout has.
//
//   example_query <table> <symbol>
#include <algorithm>
#include <cstdio>
#include <string>

#include "tabulo/error.h"
#include "tabulo/reader.h"

namespace {

// A message as people read it.
std::string shown(tabulo::Text wire) {
    std::string text(wire.value_or(""));
    std::replace(text.begin(), text.end(), '\001', '|');
    return text;
}

void query(const char* table, const char* symbol) {
    tabulo::Reader orders(table);
    auto about = tabulo::Query().text("Symbol", tabulo::TextCondition::anyOf({symbol})).backward();
    auto messages = orders.messages(about);
    for (const tabulo::MessageView& message : messages) {
        std::printf("%d: %s\n", message.seqNum(), shown(message.wire()).c_str());
    }
    std::printf("%lld blocks were read, %lld skipped.\n", static_cast<long long>(messages.blocksRead()),
                static_cast<long long>(messages.blocksSkipped()));
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fprintf(stderr, "usage: %s <table> <symbol>\n", arguments[0]);
        return 2;
    }
    try {
        query(arguments[1], arguments[2]);
    } catch (const tabulo::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
