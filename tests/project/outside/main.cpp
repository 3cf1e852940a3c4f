// Tells what a table of unknown layout says about itself, and walks it: outside <table file>
#include <cstdio>

#include "tabulo/error.h"
#include "tabulo/reader.h"
#include "tabulo/table_info.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("outside <table file>\n", stderr);
        return 2;
    }
    try {
        const tabulo::TableInfo info = tabulo::inspect(argv[1]);
        std::printf("%s: %lld messages in %lld closed blocks of %d and %d in the open one, last id %d\n",
                    info.name.c_str(), static_cast<long long>(info.messageCount),
                    static_cast<long long>(info.closedBlocks), info.layout.messagesPerBlock, info.openMessages,
                    info.lastUniformId.value_or(0));
        tabulo::Reader reader(argv[1]);
        long long sum = 0;
        int count = 0;
        for (const tabulo::MessageView& message : reader.messages()) {
            sum += message.uniformId();
            ++count;
        }
        std::printf("%d messages were read, their ids add up to %lld\n", count, sum);
        return 0;
    } catch (const tabulo::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
