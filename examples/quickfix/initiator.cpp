// A client on QuickFIX whose messages are kept in tables: it sends some orders a second apart, and ends.
//
//   example_quickfix_initiator initiator.cfg [orders, else 10]
#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <thread>

#include <quickfix/SocketInitiator.h>

#include "examples/quickfix/client.h"
#include "tabulo/quickfix/log_factory.h"
#include "tabulo/quickfix/store_factory.h"

int main(int count, char** arguments) {
    if (count < 2 || count > 3) {
        std::cerr << "usage: " << arguments[0] << " <settings> [orders]\n";
        return 2;
    }
    try {
        const FIX::SessionSettings settings(arguments[1]);
        const FIX::Dictionary& shared = settings.get();
        Client client(shared.getString("TabuloStorePath"), shared.getString("OrderBook"),
                      shared.getString("ReportBook"));
        tabulo::quickfix::TabuloStoreFactory stores(settings);  // was FIX::FileStoreFactory stores(settings);
        tabulo::quickfix::TabuloLogFactory logs(stores);        // was FIX::FileLogFactory logs(settings);
        FIX::SocketInitiator initiator(client, stores, settings, logs);
        const FIX::SessionID session = *settings.getSessions().begin();
        initiator.start();
        client.sendUnsent(session);
        for (long orders = count == 3 ? std::strtol(arguments[2], nullptr, 10) : 10; orders > 0; --orders) {
            std::cout << "sent " << client.sendNext(session) << std::endl;
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
        initiator.stop();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
