// Stores a message as an engine does, and gets it back: engine <folder>. C++14, as the engine's headers.
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <quickfix/SessionSettings.h>

#include "tabulo/quickfix/log_factory.h"
#include "tabulo/quickfix/store_factory.h"

int main(int count, char** arguments) {
    if (count != 2) {
        return 2;
    }
    std::istringstream text(std::string("[DEFAULT]\nConnectionType=initiator\nTabuloStorePath=") + arguments[1] +
                            "\n[SESSION]\nBeginString=FIX.4.4\nSenderCompID=CLIENT\nTargetCompID=EXCHANGE\n");
    const FIX::SessionSettings settings(text);
    tabulo::quickfix::TabuloStoreFactory stores(settings);
    tabulo::quickfix::TabuloLogFactory logs(stores);
    const FIX::SessionID session("FIX.4.4", "CLIENT", "EXCHANGE");
    FIX::MessageStore* const store = stores.create(session);
    FIX::Log* const log = logs.create(session);
    store->set(1, "35=D\00111=ORDER-1\001");
    log->onOutgoing("35=D\00111=ORDER-1\001");
    std::vector<std::string> found;
    store->get(1, 1, found);
    std::cout << "stored: " << found.size() << std::endl;
    logs.destroy(log);
    stores.destroy(store);
    return 0;
}
