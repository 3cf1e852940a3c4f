// An exchange on QuickFIX whose messages are kept in tables: it acknowledges and fills orders until it is interrupted.
//
//   example_quickfix_acceptor acceptor.cfg
#include <csignal>
#include <exception>
#include <iostream>

#include <quickfix/SocketAcceptor.h>

#include "examples/quickfix/exchange.h"
#include "tabulo/quickfix/log_factory.h"
#include "tabulo/quickfix/store_factory.h"

namespace {

void waitForInterrupt() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    int number = 0;
    sigwait(&signals, &number);
}

// Before the first thread is there: threads leave these signals to waitForInterrupt as well.
void holdInterrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: " << arguments[0] << " <settings>\n";
        return 2;
    }
    holdInterrupts();
    try {
        const FIX::SessionSettings settings(arguments[1]);
        const std::string folder = settings.get().getString("TabuloStorePath");
        Exchange exchange(folder, settings.get().getString("Book"));
        tabulo::quickfix::TabuloStoreFactory stores(settings);  // was FIX::FileStoreFactory stores(settings);
        tabulo::quickfix::TabuloLogFactory logs(stores);        // was FIX::FileLogFactory logs(settings);
        FIX::SocketAcceptor acceptor(exchange, stores, settings, logs);
        acceptor.start();
        std::cout << "accepting orders" << std::endl;
        waitForInterrupt();
        acceptor.stop();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
