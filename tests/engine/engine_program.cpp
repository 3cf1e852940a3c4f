// An engine that tests start, tell what to do and kill: the example's exchange or client on the store that is asked
// for.
//
//   engine_program exchange|client <settings> tabulo|file|memory <folder> [<sets> <targets>]
//
// <folder> holds the tables or the file store's files in <folder>/store, the application's books and, in
// <folder>/deliveries, a line for each message that the application was given: ClOrdID or ExecID, sequence number,
// PossDup. Commands come from standard input, one a line, and are answered on standard output:
//   numbers            "numbers <next sender> <next target>" for each session in the order of their ids
//   sender N, target N set the next number of every session
//   send N             gives N orders to each session; "sent N"
//   flow N             sends about N orders a second in each session, from a thread for each, until "hold" ("held")
//   logout, logon      of every session
//   quit               ends (the end of the input does too); with logouts
// The last two arguments are when it kills itself, as Death says. Unasked it tells "created", "on <session>" and "off
// <session>".
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <quickfix/FileStore.h>
#include <quickfix/SocketAcceptor.h>
#include <quickfix/SocketInitiator.h>
#include <quickfix/ThreadedSocketAcceptor.h>
#include <quickfix/ThreadedSocketInitiator.h>

#include "examples/quickfix/client.h"
#include "examples/quickfix/exchange.h"
#include "tabulo/quickfix/log_factory.h"
#include "tabulo/quickfix/store_factory.h"
#include "tests/engine/dying_store.h"

namespace {

void tell(const std::string& line) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::cout << line << std::endl;
}

// What an application was given, before it does anything with it.
class Deliveries {
  public:
    explicit Deliveries(const std::string& path) : file_(path, std::ios::app) {}

    void add(const FIX::Message& message) {
        const bool order = message.getHeader().getField(FIX::FIELD::MsgType) == "D";
        const FIX::Header& header = message.getHeader();
        std::ostringstream line;
        line << message.getField(order ? FIX::FIELD::ClOrdID : FIX::FIELD::ExecID) << ' '
             << header.getField(FIX::FIELD::MsgSeqNum) << ' '
             << (header.isSetField(FIX::FIELD::PossDupFlag) ? header.getField(FIX::FIELD::PossDupFlag) : "N") << '\n';
        file_ << line.str() << std::flush;
    }

  private:
    std::ofstream file_;
};

// The example's application of one session, which also writes down its deliveries.
template <typename Application>
class Recorded : public Application {
  public:
    template <typename... Arguments>
    explicit Recorded(const std::string& deliveries, const Arguments&... arguments)
        : Application(arguments...), deliveries_(deliveries) {}

    void fromApp(const FIX::Message& message,
                 const FIX::SessionID& session) throw(FIX::FieldNotFound, FIX::IncorrectDataFormat,
                                                      FIX::IncorrectTagValue, FIX::UnsupportedMessageType) override {
        deliveries_.add(message);
        Application::fromApp(message, session);
    }

  private:
    Deliveries deliveries_;
};

// Gives each session an application of its own: they run in several threads.
class Applications : public FIX::NullApplication {
  public:
    Applications(bool exchange, const std::string& folder, const std::set<FIX::SessionID>& sessions) {
        for (const FIX::SessionID& session : sessions) {
            const std::string place = folder + "/" + session.getSenderCompID().getString() + "-" +
                                      session.getTargetCompID().getString() + ".";
            if (exchange) {
                exchanges_[session] =
                    std::make_unique<Recorded<Exchange>>(place + "deliveries", folder + "/store", place + "orders");
            } else {
                clients_[session] = std::make_unique<Recorded<Client>>(place + "deliveries", folder + "/store",
                                                                       place + "orders", place + "reports");
            }
        }
    }

    Client& client(const FIX::SessionID& session) { return *clients_.at(session); }

    void onLogon(const FIX::SessionID& session) override { tell("on " + session.toString()); }
    void onLogout(const FIX::SessionID& session) override { tell("off " + session.toString()); }

    void fromApp(const FIX::Message& message,
                 const FIX::SessionID& session) throw(FIX::FieldNotFound, FIX::IncorrectDataFormat,
                                                      FIX::IncorrectTagValue, FIX::UnsupportedMessageType) override {
        if (clients_.count(session) != 0) {
            clients_.at(session)->fromApp(message, session);
        } else {
            exchanges_.at(session)->fromApp(message, session);
        }
    }

  private:
    std::map<FIX::SessionID, std::unique_ptr<Recorded<Exchange>>> exchanges_;
    std::map<FIX::SessionID, std::unique_ptr<Recorded<Client>>> clients_;
};

// Orders at a rate, from a thread for each session.
class Flow {
  public:
    Flow(Applications& applications, const std::set<FIX::SessionID>& sessions)
        : applications_(applications), sessions_(sessions) {}
    ~Flow() { hold(); }

    void begin(int rate) {
        running_ = true;
        for (const FIX::SessionID& session : sessions_) {
            threads_.emplace_back([this, session, rate] { run(session, rate); });
        }
    }

    void hold() {
        running_ = false;
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

  private:
    // In steps of 10 ms.
    void run(const FIX::SessionID& session, int rate) {
        Client& client = applications_.client(session);
        auto next = std::chrono::steady_clock::now();
        while (running_) {
            for (int order = 0; order < rate / 100 && running_; ++order) {
                client.sendNext(session);
            }
            next += std::chrono::milliseconds(10);
            std::this_thread::sleep_until(next);
        }
    }

    Applications& applications_;
    std::set<FIX::SessionID> sessions_;
    std::atomic<bool> running_{false};
    std::vector<std::thread> threads_;
};

struct Engine {
    Applications& applications;
    const std::set<FIX::SessionID>& sessions;
    Flow& flow;
};

void numbers(const std::set<FIX::SessionID>& sessions) {
    std::string line = "numbers";
    for (const FIX::SessionID& id : sessions) {
        FIX::Session* session = FIX::Session::lookupSession(id);
        line += " " + std::to_string(session->getExpectedSenderNum()) + " " +
                std::to_string(session->getExpectedTargetNum());
    }
    tell(line);
}

void change(FIX::Session& session, const std::string& command, int number) {
    if (command == "sender") {
        session.setNextSenderMsgSeqNum(number);
    } else if (command == "target") {
        session.setNextTargetMsgSeqNum(number);
    } else if (command == "logout") {
        session.logout();
    } else if (command == "logon") {
        session.logon();
    }
}

void follow(Engine& engine, const std::string& command, int number) {
    if (command == "numbers") {
        numbers(engine.sessions);
    } else if (command == "flow") {
        engine.flow.begin(number);
    } else if (command == "hold") {
        engine.flow.hold();
        tell("held");
    } else if (command == "send") {
        for (const FIX::SessionID& session : engine.sessions) {
            for (int order = 0; order < number; ++order) {
                engine.applications.client(session).sendNext(session);
            }
        }
        tell("sent " + std::to_string(number));
    } else {
        for (const FIX::SessionID& session : engine.sessions) {
            change(*FIX::Session::lookupSession(session), command, number);
        }
        tell(command);
    }
}

// Until it is told to end.
void followAll(Engine engine) {
    for (std::string line; std::getline(std::cin, line) && line != "quit";) {
        std::istringstream words(line);
        std::string command;
        int number = 0;
        words >> command >> number;
        follow(engine, command, number);
    }
    engine.flow.hold();
}

template <typename Connection>
void run(bool exchange, const FIX::SessionSettings& settings, const std::string& folder,
         FIX::MessageStoreFactory& stores, FIX::LogFactory* logs) {
    const std::set<FIX::SessionID> sessions = settings.getSessions();
    Applications applications(exchange, folder, sessions);
    std::unique_ptr<Connection> connection(logs != nullptr ? new Connection(applications, stores, settings, *logs)
                                                           : new Connection(applications, stores, settings));
    if (!exchange && logs != nullptr) {  // the other stores cannot be asked what they hold
        for (const FIX::SessionID& session : sessions) {
            applications.client(session).sendUnsent(session);
        }
    }
    connection->start();
    tell("created");
    Flow flow(applications, sessions);
    followAll({applications, sessions, flow});
    connection->stop();
}

void runOn(FIX::MessageStoreFactory& stores, FIX::LogFactory* logs, bool exchange, const FIX::SessionSettings& settings,
           const std::string& folder) {
    const bool threaded = settings.get().has("Threaded");
    if (exchange && threaded) {
        run<FIX::ThreadedSocketAcceptor>(exchange, settings, folder, stores, logs);
    } else if (exchange) {
        run<FIX::SocketAcceptor>(exchange, settings, folder, stores, logs);
    } else if (threaded) {
        run<FIX::ThreadedSocketInitiator>(exchange, settings, folder, stores, logs);
    } else {
        run<FIX::SocketInitiator>(exchange, settings, folder, stores, logs);
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 5 && count != 7) {
        std::cerr << "usage: " << arguments[0]
                  << " exchange|client <settings> tabulo|file|memory <folder> [<sets> <targets>]\n";
        return 2;
    }
    try {
        const bool exchange = std::string(arguments[1]) == "exchange";
        const FIX::SessionSettings settings(arguments[2]);
        const std::string kind = arguments[3];
        const std::string folder = arguments[4];
        if (kind == "tabulo") {
            tabulo::quickfix::TabuloStoreFactory stores(settings);
            tabulo::quickfix::TabuloLogFactory logs(stores);
            Death death;
            if (count == 7) {
                death.afterSets = std::stoi(arguments[5]);
                death.beforeTargets = std::stoi(arguments[6]);
            }
            DyingStoreFactory dying(stores, death);
            runOn(dying, &logs, exchange, settings, folder);
        } else if (kind == "file") {
            FIX::FileStoreFactory stores(settings);
            runOn(stores, nullptr, exchange, settings, folder);
        } else {
            FIX::MemoryStoreFactory stores;
            runOn(stores, nullptr, exchange, settings, folder);
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        return 1;
    }
    return 0;
}
