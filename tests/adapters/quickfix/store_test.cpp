#include "tests/adapters/quickfix/store_test.h"

#include <stdlib.h>

namespace tabulo {
namespace quickfix {
namespace test {

Folder::Folder() {
    char name[] = "tables-XXXXXX";
    const char* const made = ::mkdtemp(name);
    if (made == nullptr) {
        throw std::runtime_error("no folder for the test");
    }
    path_ = made;
}

Folder::~Folder() {
    const int status = std::system(("rm -rf '" + path_ + "'").c_str());
    (void)status;  // what is left goes with the tests' folder
}

FIX::SessionSettings settingsWith(const std::string& folder, const std::string& lines) {
    std::istringstream text("[DEFAULT]\nConnectionType=initiator\nTabuloStorePath=" + folder +
                            "\nFileStorePath=" + folder + "\n" + lines +
                            "[SESSION]\nBeginString=FIX.4.4\nSenderCompID=CLIENT\nTargetCompID=EXCHANGE\n");
    return FIX::SessionSettings(text);
}

FIX::SessionID session() {
    return FIX::SessionID("FIX.4.4", "CLIENT", "EXCHANGE");
}

std::string wireOf(const std::string& type, int number, const std::string& fields) {
    std::string wire = "8=FIX.4.4|9=100|35=" + type + "|34=" + std::to_string(number) +
                       "|49=CLIENT|56=EXCHANGE|52=20261123-09:15:00|" + fields + "10=000|";
    for (char& letter : wire) {
        letter = letter == '|' ? '\x01' : letter;
    }
    return wire;
}

std::string order(int number, const std::string& id) {
    return wireOf("D", number,
                  "11=" + (id.empty() ? "ORDER-" + std::to_string(number) : id) + "|55=MSFT|38=100|44=71.25|");
}

}  // namespace test
}  // namespace quickfix
}  // namespace tabulo
