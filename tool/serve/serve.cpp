#include "tool/serve.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <string_view>
#include <thread>

#include "tool/listing.h"
#include "tool/serve/gate.h"
#include "tool/serve/http_server.h"
#include "tool/serve/site.h"
#include "tool/serve/table_board.h"
#include "tool/serve/table_watch.h"

namespace tabulo::tool {

namespace {

constexpr std::chrono::milliseconds INTERRUPT_TIME(50);

struct Address {
    std::string host;
    int port = 0;
    bool isLoopback = false;
};

Address addressOf(std::string_view text) {
    Address address;
    const std::size_t colon = text.rfind(':');
    const std::string_view port = colon == std::string_view::npos ? "" : text.substr(colon + 1);
    const auto result = std::from_chars(port.data(), port.data() + port.size(), address.port);
    const bool isPort = !port.empty() && result.ec == std::errc() && result.ptr == port.data() + port.size() &&
                        address.port >= 0 && address.port <= 65535;
    address.host = isPort ? std::string(text.substr(0, colon)) : "";
    if (address.host.starts_with('[') && address.host.ends_with(']')) {
        address.host = address.host.substr(1, address.host.size() - 2);
    }
    if (address.host == "localhost") {
        address.host = "127.0.0.1";
    }
    struct in_addr four {};
    struct in6_addr six {};
    if (::inet_pton(AF_INET, address.host.c_str(), &four) == 1) {
        address.isLoopback = (ntohl(four.s_addr) >> 24U) == 127;
    } else if (::inet_pton(AF_INET6, address.host.c_str(), &six) == 1) {
        address.isLoopback = IN6_IS_ADDR_LOOPBACK(&six);
    } else {
        throw UsageError(fmt::format(
            "--listen takes ADDRESS:PORT with an address in numbers, as 127.0.0.1:8080 or [::1]:8080, not '{}'",
            shownText(text)));
    }
    return address;
}

void checkSafety(Console& console, const ServeOptions& options, const Address& address) {
    if (options.certificate.empty() != options.key.empty()) {
        throw UsageError("--tls-certificate and --tls-key belong together");
    }
    if (address.isLoopback || !options.certificate.empty()) {
        return;
    }
    if (!options.insecure) {
        throw UsageError(fmt::format(
            "others can reach {}: give --tls-certificate and --tls-key, or --insecure, with which the token and all "
            "messages go over the network for everybody to read",
            shownText(options.listen)));
    }
    console.say(
        fmt::format("--insecure: the token and all messages go over the network as they are; whoever can read it "
                    "on its way to {} can read the tables",
                    shownText(options.listen)));
}

}  // namespace

void runServe(Console& console, const ServeOptions& options) {
    const Address address = addressOf(options.listen);
    checkSafety(console, options, address);
    serve::TableBoard board;
    serve::TableWatch watch(options.folders, board);
    serve::Gate gate;
    serve::Site* site = nullptr;
    serve::HttpServer server([&gate](const auto& request, auto& response) { return gate.refuses(request, response); },
                             [&site](const auto& request, auto& response) { site->answer(request, response); });
    serve::Site answers(board, server.ending());
    site = &answers;
    if (!options.certificate.empty()) {
        server.encrypt(options.certificate, options.key);
    }
    const int port = server.bind(address.host, address.port);
    gate.know(address.host, port, !options.certificate.empty(), options.hosts);
    watch.start();
    std::string folders;
    for (const std::string& folder : options.folders) {
        folders += (folders.empty() ? "" : ", ") + shownText(folder);
    }
    console.write(fmt::format(
        "Serving {} table{} of {}. Open this address in a browser; it holds the key, which the page then keeps:\n{}\n"
        "Ctrl-C ends it.\n",
        watch.tables(), watch.tables() == 1 ? "" : "s", folders, gate.page()));
    console.flush();
    const std::jthread ending([&server](const std::stop_token& stop) {
        while (!stop.stop_requested() && !Console::isInterrupted()) {
            std::this_thread::sleep_for(INTERRUPT_TIME);
        }
        server.stop();
    });
    server.run();
    Console::checkInterrupt();
}

}  // namespace tabulo::tool
