#include "benchmarks/stores/quickfix_files.h"

#include <quickfix/FileStore.h>

#include <exception>
#include <string>
#include <vector>

namespace tabulo::internal {
namespace bench {

void* quickfixFiles_open(const char* directory) {
    return new FIX::FileStore(directory, FIX::SessionID("FIX.4.4", "OMS", "EXCHANGE"));
}

bool quickfixFiles_set(void* files, int seqNum, const char* text, std::size_t length) {
    try {
        return static_cast<FIX::FileStore*>(files)->set(seqNum, std::string(text, length));
    } catch (const std::exception&) {
        return false;
    }
}

void quickfixFiles_close(void* files) {
    delete static_cast<FIX::FileStore*>(files);
}

bool quickfixFiles_get(void* files, int first, int last, bool backward,
                       bool (*take)(void* context, char* text, std::size_t length), void* context) {
    std::vector<std::string> messages;
    try {
        static_cast<FIX::FileStore*>(files)->get(first, last, messages);
    } catch (const std::exception&) {
        return false;
    }
    bool more = true;
    for (std::size_t i = 0; more && i < messages.size(); ++i) {
        std::string& message = messages[backward ? messages.size() - 1 - i : i];
        more = take(context, &message[0], message.size());
    }
    return true;
}

}  // namespace bench
}  // namespace tabulo::internal
