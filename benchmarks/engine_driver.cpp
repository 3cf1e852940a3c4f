// QuickFIX's store on tables beside its own file store.
//
//   engine_driver <results.json> <messages> <turns>
//
// In a directory of its own. Both stores take turns with the same messages; what they give back is compared. C++14, as
// the engine's headers.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <quickfix/FileStore.h>
#include <quickfix/SessionSettings.h>

#include "tabulo/quickfix/log_factory.h"
#include "tabulo/quickfix/store_factory.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int RANGE = 1000;  // messages of a get
constexpr int GETS = 200;

// The results, a JSON object a line; each is printed, too.
class Figures {
  public:
    explicit Figures(const char* path) : file_(path) {}

    void add(const std::string& subject, const std::string& metric, const std::string& unit, double value) {
        std::printf("engine       %-24s %-28s %14.3f %s\n", subject.c_str(), metric.c_str(), value, unit.c_str());
        std::fflush(stdout);
        file_ << "{\"group\": \"engine\", \"subject\": \"" << subject << "\", \"metric\": \"" << metric
              << "\", \"unit\": \"" << unit << "\", \"value\": " << value << "}" << std::endl;
    }

  private:
    std::ofstream file_;
};

double secondsOf(const std::function<void()>& work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Of this process, in MiB.
double residentMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 6, "VmRSS:") == 0) {
            return std::atof(line.c_str() + 6) / 1024;
        }
    }
    return 0;
}

std::string order(int number) {
    return "8=FIX.4.4\0019=170\00135=D\00134=" + std::to_string(number) +
           "\00149=CLIENT\00156=EXCHANGE\00152=20261123-09:15:00.123\00111=ORDER-" + std::to_string(number) +
           "\0011=ACCOUNT\00121=1\00155=MSFT\00154=1\00160=20261123-09:15:00.123\00138=100\00140=2\00144=71.25\00110="
           "000\001";
}

FIX::SessionSettings settingsIn(const std::string& folder) {
    std::istringstream text("[DEFAULT]\nConnectionType=initiator\nTabuloStorePath=" + folder + "\nFileStorePath=" +
                            folder + "\n[SESSION]\nBeginString=FIX.4.4\nSenderCompID=CLIENT\nTargetCompID=EXCHANGE\n");
    return FIX::SessionSettings(text);
}

const FIX::SessionID SESSION("FIX.4.4", "CLIENT", "EXCHANGE");

// As the engine does it: each message is stored, then counted.
double fill(FIX::MessageStoreFactory& factory, int first, int last, std::vector<double>* setOnly) {
    FIX::MessageStore* const store = factory.create(SESSION);
    double setting = 0;
    const double all = secondsOf([&] {
        for (int number = first; number <= last; ++number) {
            const std::string wire = order(number);
            const auto begin = Clock::now();
            store->set(number, wire);
            setting += std::chrono::duration<double>(Clock::now() - begin).count();
            store->incrNextSenderMsgSeqNum();
        }
    });
    factory.destroy(store);
    setOnly->push_back((last - first + 1) / setting);
    return (last - first + 1) / all;
}

struct Kind {
    std::string name;
    std::unique_ptr<FIX::MessageStoreFactory> factory;
};

std::vector<std::string> measureFilled(Figures& figures, Kind& kind, int messages) {
    FIX::MessageStore* store = nullptr;
    ::malloc_trim(0);  // or one store pays for putting together what the other one has given back
    const double before = residentMemory();
    figures.add(kind.name, "start", "ms", 1000 * secondsOf([&] { store = kind.factory->create(SESSION); }));
    std::vector<std::string> found;
    figures.add(kind.name, "first get", "ms",
                1000 * secondsOf([&] { store->get(messages / 2, messages / 2 + RANGE - 1, found); }));
    double seconds = 0;
    for (int turn = 0; turn < GETS; ++turn) {
        const int first = 1 + (messages - RANGE) / GETS * turn;
        found.clear();
        seconds += secondsOf([&] { store->get(first, first + RANGE - 1, found); });
    }
    figures.add(kind.name, "get", "ms", 1000 * seconds / GETS);
    figures.add(kind.name, "memory", "MiB", residentMemory() - before);
    if (store->getNextSenderMsgSeqNum() != messages + 1) {
        std::fprintf(stderr, "%s counts otherwise\n", kind.name.c_str());
        std::exit(1);
    }
    kind.factory->destroy(store);
    return found;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "engine_driver <results.json> <messages> <turns>\n");
        return 2;
    }
    Figures figures(argv[1]);
    const int messages = std::atoi(argv[2]);
    const int turns = std::atoi(argv[3]);
    if (std::system("rm -rf tables files && mkdir tables files") != 0) {
        return 1;
    }
    Kind kinds[] = {
        {"tabulo",
         std::unique_ptr<FIX::MessageStoreFactory>(new tabulo::quickfix::TabuloStoreFactory(settingsIn("tables")))},
        {"file store", std::unique_ptr<FIX::MessageStoreFactory>(new FIX::FileStoreFactory(settingsIn("files")))}};
    // In as many parts as there are turns, so that both have the same moments of the machine.
    for (int turn = 0; turn < turns; ++turn) {
        for (Kind& kind : kinds) {
            std::vector<double> set;
            const double both = fill(*kind.factory, messages / turns * turn + 1, messages / turns * (turn + 1), &set);
            figures.add(kind.name, "set", "/s", set.back());
            figures.add(kind.name, "set and count", "/s", both);
        }
    }
    ::sync();  // so that starts do not wait for the disk to take what was just written
    for (int turn = 0; turn < turns; ++turn) {
        const auto ours = measureFilled(figures, kinds[0], messages / turns * turns);
        if (ours != measureFilled(figures, kinds[1], messages / turns * turns) || ours.size() != RANGE) {
            std::fprintf(stderr, "the stores give different messages\n");
            return 1;
        }
    }
    figures.add("setting", "messages", "", messages);
    return 0;
}
