// Creates a message table and stores messages of 55 bytes in it, for a test that watches its calls to the system.
//
//   write_messages <root> <table> <messagesPerBlock> <count>
//
// Before the first message it asks for the file "/first message", behind the last one for "/last message", so that the
// watcher sees where the messages begin and end. The tail is saved and the table closed behind that.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "messagetable/message_table.h"

namespace {

using namespace tabulo::internal;

ErrorCode store(MessageTable* table, std::int32_t count) {
    const std::array<StringField, 4> strings{};
    MessageMetadata metadata;
    ErrorCode code = NO_ERROR;
    static_cast<void>(::access("/first message", F_OK));
    for (std::int32_t n = 1; n <= count && code == NO_ERROR; ++n) {
        metadata.uniformId = n;
        code = mt_writeMessage(table, {metadata, strings, {}});
    }
    static_cast<void>(::access("/last message", F_OK));
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fputs("write_messages <root> <table> <messagesPerBlock> <count>\n", stderr);
        return 2;
    }
    KSVTboTableConfig* config = tableConfig_create(argv[2], 1);
    MessageTableLayout layout;
    layout.messagesPerBlock = std::atoi(argv[3]);
    (void)tableConfig_setPath(config, 0, argv[1]);
    (void)tableConfig_setParams(config, &layout, nullptr);
    MessageTable* table = mt_create(config);
    ErrorCode code = mt_open(table, OpenMode::create);
    if (code == NO_ERROR) {
        code = store(table, std::atoi(argv[4]));
    }
    if (code == NO_ERROR) {
        code = mt_close(table);
    }
    mt_destroy(table);
    return code == NO_ERROR ? 0 : 1;
}
