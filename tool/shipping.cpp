#include "tool/shipping.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "adapters/nats/jetstream.h"
#include "adapters/nats/lag.h"
#include "adapters/nats/owner.h"
#include "adapters/nats/receiver.h"
#include "adapters/nats/shipper.h"
#include "tool/tables.h"

namespace tabulo::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds FIRST_PAUSE{100};
constexpr std::chrono::milliseconds LONGEST_PAUSE{5000};
constexpr std::chrono::seconds SAID_EVERY{60};
constexpr std::chrono::milliseconds LAG_ANSWERS_WITHIN{1000};

std::string valueOf(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void readLogin(const std::string& path, shipping::NatsOptions* options) {
    std::ifstream file(path);
    if (!std::getline(file, options->user) || !std::getline(file, options->password)) {
        throw Failure(fmt::format("{}: a file of two lines is needed, the user's name and the password", path));
    }
}

shipping::NatsOptions natsOptions(const ClusterOptions& cluster) {
    if (cluster.certificate.empty() != cluster.key.empty()) {
        throw UsageError("--cert and --key go together");
    }
    shipping::NatsOptions options{.servers = cluster.servers,
                                  .credentials = cluster.credentials,
                                  .user = valueOf("TABULO_NATS_USER"),
                                  .password = valueOf("TABULO_NATS_PASSWORD"),
                                  .authority = cluster.authority,
                                  .certificate = cluster.certificate,
                                  .key = cluster.key};
    if (!cluster.loginFile.empty()) {
        readLogin(cluster.loginFile, &options);
    }
    return options;
}

void checkStreams(const std::vector<std::string>& streams) {
    for (const std::string& stream : streams) {
        const bool isName =
            !stream.empty() && stream.size() <= 64 && std::all_of(stream.begin(), stream.end(), [](unsigned char c) {
                return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
                       c == '_';
            });
        if (!isName) {
            throw UsageError(fmt::format("--stream: '{}' is no name of a stream: up to 64 letters, digits, '-' and '_'",
                                         shownText(stream)));
        }
    }
}

// What several threads say, one after the other.
class SharedWords {
  public:
    SharedWords(Console& console, std::string prefix) : console_(console), prefix_(std::move(prefix)) {}

    void say(const std::string& line) {
        const std::scoped_lock lock(mutex_);
        console_.say(prefix_ + shownText(line));
    }
    shipping::Words words() {
        return {.say = [this](const std::string& line) { say(line); },
                .warn =
                    [this](const std::string& line) {
                        const std::scoped_lock lock(mutex_);
                        console_.warn(prefix_ + shownText(line));
                    }};
    }

  private:
    static std::mutex mutex_;
    Console& console_;
    std::string prefix_;
};

std::mutex SharedWords::mutex_;

void sleepUnlessInterrupted(std::chrono::milliseconds time) {
    const auto end = Clock::now() + time;
    while (Clock::now() < end && !Console::isInterrupted()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

// Tries again, with growing pauses, what a cluster that is away ends.
void rideOut(SharedWords& words, const std::function<void()>& work) {
    std::chrono::milliseconds pause = FIRST_PAUSE;
    std::optional<Clock::time_point> said;
    while (!Console::isInterrupted()) {
        const auto begun = Clock::now();
        try {
            work();
            return;
        } catch (const shipping::Unreachable& error) {
            if (Clock::now() - begun > LONGEST_PAUSE) {
                pause = FIRST_PAUSE;
            }
            if (!said.has_value() || Clock::now() - *said > SAID_EVERY) {
                words.say(fmt::format("{}; trying again", error.what()));
                said = Clock::now();
            }
        }
        sleepUnlessInterrupted(pause);
        pause = std::min(pause * 2, LONGEST_PAUSE);
    }
}

// Ends like any other verb that was interrupted, unless something was left out.
void endOf(Console& console) {
    if (console.status() == Status::done) {
        Console::checkInterrupt();
    }
}

void receive(Console& console, const ReceiveVerbOptions& options, const std::string& stream,
             const std::filesystem::path& folder) {
    SharedWords words(console, options.cluster.streams.size() > 1 ? stream + ": " : "");
    shipping::JetStream log(natsOptions(options.cluster), stream, "tabulo receive");
    shipping::Receiver receiver(
        log, {.folder = folder, .once = options.once, .isStopped = [] { return Console::isInterrupted(); }},
        words.words());
    rideOut(words, [&] { receiver.run(); });
}

}  // namespace

void runShip(Console& console, const ShipVerbOptions& options) {
    checkStreams(options.cluster.streams);
    const std::string& stream = options.cluster.streams.front();
    NewTables newTables(options.once ? std::vector<std::string>{} : options.files);
    shipping::ShipOptions ship{.once = options.once,
                               .takeover = options.takeover,
                               .acceptRewind = options.acceptRewind,
                               .allowGap = options.allowGap,
                               .isStopped = [] { return Console::isInterrupted(); }};
    for (const NamedFile& file : expandPaths(console, options.files)) {
        ship.tables.push_back(file.path);
    }
    ship.newTables = [&newTables] {
        std::vector<std::filesystem::path> come = newTables.look();
        for (const std::filesystem::path& path : come) {
            newTables.know(path);
        }
        return come;
    };
    SharedWords words(console, "");
    words.say(fmt::format("shipping {} table{} to the stream {} at {}", ship.tables.size(),
                          ship.tables.size() == 1 ? "" : "s", stream, options.cluster.servers));
    shipping::JetStream log(natsOptions(options.cluster), stream, "tabulo ship");
    shipping::Shipper shipper(log, std::move(ship), words.words());
    rideOut(words, [&] {
        log.make(options.replicas);
        shipper.run();
    });
    endOf(console);
}

void runReceive(Console& console, const ReceiveVerbOptions& options) {
    checkStreams(options.cluster.streams);
    const bool isOne = options.cluster.streams.size() == 1;
    std::vector<std::thread> threads;
    std::vector<std::exception_ptr> errors(options.cluster.streams.size());
    for (std::size_t i = 0; i < errors.size(); ++i) {
        const std::string& stream = options.cluster.streams[i];
        const std::filesystem::path folder(options.folder);
        threads.emplace_back([&, i, stream, folder = isOne ? folder : folder / stream] {
            try {
                receive(console, options, stream, folder);
            } catch (...) {
                errors[i] = std::current_exception();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::exception_ptr& error : errors) {
        if (error != nullptr) {
            std::rethrow_exception(error);
        }
    }
    endOf(console);
}

void runLag(Console& console, const LagVerbOptions& options) {
    checkStreams(options.cluster.streams);
    Listing listing(console, options.format,
                    {{"stream", "STREAM"},
                     {"role", "ROLE"},
                     {"host", "HOST"},
                     {"pid", "PID"},
                     {"messages", "MESSAGES"},
                     {"bytes", "BYTES"},
                     {"seconds", "SECONDS"}});
    bool isAny = false;
    for (const std::string& stream : options.cluster.streams) {
        shipping::JetStream log(natsOptions(options.cluster), stream, "tabulo lag");
        for (const std::string& answer : log.ask(shipping::lagSubject(stream), LAG_ANSWERS_WITHIN, false)) {
            const std::optional<shipping::LagReport> report = shipping::lagReportOf(answer);
            if (!report.has_value()) {
                console.warn(fmt::format("an answer on {} that is none: {}", shipping::lagSubject(stream),
                                         shownText(answer.substr(0, 200))));
                continue;
            }
            isAny = true;
            listing.add({{report->stream},
                         {report->role},
                         {report->host},
                         {report->pid},
                         {report->messages},
                         {report->bytes, shownBytes(report->bytes)},
                         {report->seconds, fmt::format("{:.3f}", report->seconds)}});
        }
    }
    listing.end();
    if (!isAny) {
        throw Failure("nobody answers: neither a shipper nor a receiver of " +
                      fmt::format("{}", fmt::join(options.cluster.streams, ", ")) + " is running");
    }
}

}  // namespace tabulo::tool
