// What shipping_benchmark.py runs beside the command: libnats alone, and an engine.
//
//   shipping_driver publish <url> <stream> <replicas> <table>  publishes the table's frames to a stream that it makes
//   shipping_driver store <table> <messages>                   stores messages as fast as it can
//   shipping_driver delays <table> <copy> <rate> <messages>    stores messages at a rate, and looks when their copies
//   can be read
//
// The first two print messages a second, the last one milliseconds: the median, and what 99 of 100 stay below.
#include <nats/nats.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/fail.h"
#include "tabulo/follower.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"

namespace {

using tabulo::internal::bench::fail;
using Clock = std::chrono::steady_clock;

constexpr std::int64_t IN_FLIGHT = 4096;

void check(natsStatus status, const char* what) {
    if (status != NATS_OK) {
        fail(std::string(what) + ": " + natsStatus_GetText(status));
    }
}

// A record that was refused would leave the rest refused too.
void refused(jsCtx*, jsPubAckErr* error, void*) {
    fail(std::string("a record was refused: ") + (error->ErrText == nullptr ? "" : error->ErrText));
}

void makeStream(jsCtx* context, const std::string& stream, std::int64_t replicas) {
    const std::string subjects = stream + ".>";
    const char* list[] = {subjects.c_str()};
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = stream.c_str();
    config.Subjects = list;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Replicas = replicas;
    check(js_AddStream(nullptr, context, &config, nullptr, nullptr), "making a stream");
}

// libnats' own asynchronous publishing, each record with the sequence that it expects: no header beside that.
double publish(const char* url, const std::string& stream, std::int64_t replicas, const char* path) {
    natsConnection* connection = nullptr;
    check(natsConnection_ConnectTo(&connection, url), "connecting");
    jsOptions options;
    jsOptions_Init(&options);
    options.PublishAsync.MaxPending = IN_FLIGHT;
    options.PublishAsync.ErrHandler = refused;
    jsCtx* context = nullptr;
    check(natsConnection_JetStream(&context, connection, &options), "publishing");
    makeStream(context, stream, replicas);
    const std::string subject = stream + ".orders.APP_TO.D";
    tabulo::Reader reader(path);
    tabulo::Messages messages = reader.messages();
    std::uint64_t last = 0;
    const auto begin = Clock::now();
    while (const tabulo::MessageView* message = messages.next()) {
        const auto frame = message->frame();
        jsPubOptions each;
        jsPubOptions_Init(&each);
        each.ExpectLastSeq = last;
        check(js_PublishAsync(context, subject.c_str(), frame.data(), static_cast<int>(frame.size()), &each),
              "publishing");
        last += 1;
    }
    check(js_PublishAsyncComplete(context, nullptr), "waiting for acknowledgements");
    const std::chrono::duration<double> seconds = Clock::now() - begin;
    jsCtx_Destroy(context);
    natsConnection_Destroy(connection);
    return static_cast<double>(last) / seconds.count();
}

const tabulo::Layout LAYOUT{.texts = {"ClOrdID", "Symbol"}, .numbers = {"OrderQty", "Price"}};

// The messages of an engine, of the size of an order.
class Engine {
  public:
    explicit Engine(const char* path) : writer_(tabulo::Writer::create(path, LAYOUT)) {
        message_.type = "D";
        message_.texts = {"", "MSFT"};
        message_.numbers = {std::int64_t{100}, 71.25};
        message_.wire = wire_;
    }
    void store(std::int32_t id) {
        order_ = "ORDER-" + std::to_string(id);
        message_.texts[0] = order_;
        message_.uniformId = message_.seqNum = id;
        message_.id = tabulo::firstId(tabulo::MessageClass::appTo) + id;
        message_.time = 1'763'850'000'000 + id;
        writer_.append(message_);
    }
    void close() { writer_.close(); }

  private:
    tabulo::Writer writer_;
    std::string order_;
    std::string wire_ = std::string(150, 'w');
    tabulo::Message message_;
};

double store(const char* path, std::int32_t count) {
    Engine engine(path);
    const auto begin = Clock::now();
    for (std::int32_t id = 1; id <= count; ++id) {
        engine.store(id);
    }
    const std::chrono::duration<double> seconds = Clock::now() - begin;
    engine.close();
    return count / seconds.count();
}

// From an append's return to the moment at which a follower of the copy has the message; both in this process.
void delays(const char* path, const char* copy, std::int32_t rate, std::int32_t count) {
    std::vector<std::atomic<std::int64_t>> stored(static_cast<std::size_t>(count) + 2);
    const auto now = [] { return Clock::now().time_since_epoch().count(); };
    Engine engine(path);
    engine.store(1);  // by which shipper and receiver find each other
    while (!std::filesystem::exists(copy) || std::filesystem::file_size(copy) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    tabulo::Follower follower;
    follower.add(copy);
    const auto next = [&] {
        const tabulo::FollowEvent event = follower.next(std::chrono::seconds(60));
        if (event.kind == tabulo::FollowEventKind::timedOut) {
            fail("the copy has nothing new for a minute");
        }
        return event;
    };
    while (next().kind != tabulo::FollowEventKind::message) {
    }
    std::thread storing([&] {
        const auto begin = Clock::now();
        for (std::int32_t id = 2; id <= count + 1; ++id) {
            std::this_thread::sleep_until(begin + std::chrono::nanoseconds(1'000'000'000LL * id / rate));
            engine.store(id);
            stored[static_cast<std::size_t>(id)] = now();
        }
    });
    std::vector<double> found;
    while (found.size() < static_cast<std::size_t>(count)) {
        const tabulo::FollowEvent event = next();
        if (event.kind == tabulo::FollowEventKind::message) {
            const std::int64_t at = stored[static_cast<std::size_t>(event.message->uniformId())];
            found.push_back(std::max(0.0, static_cast<double>(now() - at) / 1e6));
        }
    }
    storing.join();
    engine.close();
    std::sort(found.begin(), found.end());
    std::printf("%.3f %.3f\n", found[found.size() / 2], found[found.size() * 99 / 100]);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 1 ? argv[1] : "";
    if (verb == "publish" && argc == 6) {
        std::printf("%.0f\n", publish(argv[2], argv[3], std::atoll(argv[4]), argv[5]));
    } else if (verb == "store" && argc == 4) {
        std::printf("%.0f\n", store(argv[2], std::atoi(argv[3])));
    } else if (verb == "delays" && argc == 6) {
        delays(argv[2], argv[3], std::atoi(argv[4]), std::atoi(argv[5]));
    } else {
        std::fputs(
            "shipping_driver publish <url> <stream> <replicas> <table>\n"
            "shipping_driver store <table> <messages>\n"
            "shipping_driver delays <table> <copy> <rate> <messages>\n",
            stderr);
        return 2;
    }
    return 0;
}
