#include "tests/adapters/nats/shipping_test.h"

#include "tabulo/writer.h"
#include "tests/support/bytes.h"

namespace tabulo::shipping::test {

ShippingTest::ShippingTest() : sources(directory.file("sources")), copies(directory.file("copies")) {
    std::filesystem::create_directories(sources);
}

Words ShippingTest::words(std::vector<std::string>* warned) {
    return {.say = [this](const std::string& line) { said.push_back(line); },
            .warn = [warned](const std::string& line) { warned->push_back(line); }};
}

std::vector<std::string> ShippingTest::ship(ShipOptions options) {
    options.once = true;
    if (options.tables.empty()) {
        for (const auto& entry : std::filesystem::directory_iterator(sources)) {
            options.tables.push_back(entry.path());
        }
    }
    std::vector<std::string> warned;
    for (;;) {
        MemoryStream stream(log);
        stream.limit = limit;
        stream.failNowAndThen(seed++, percent);
        log.answers.clear();
        Shipper shipper(stream, options, words(&warned));
        try {
            shipper.run();
            return warned;
        } catch (const Unreachable&) {
            continue;  // as often as it takes
        }
    }
}

std::vector<std::string> ShippingTest::receive() {
    std::vector<std::string> warned;
    MemoryStream stream(log);
    Receiver receiver(stream, {.folder = copies, .once = true, .isStopped = {}}, words(&warned));
    receiver.run();
    return warned;
}

std::string ShippingTest::copyFault(const std::string& table) const {
    using tabulo::test::readFile;
    if (!std::filesystem::exists(copy(table))) {
        return table + " was not received";
    }
    return tabulo::test::difference(readFile(source(table).string()), readFile(copy(table).string()));
}

void ShippingTest::store(const std::string& table, std::int32_t first, std::int32_t last) {
    Writer writer = Writer::openOrCreate(source(table), layout);
    writer.appendFrames(tabulo::test::simpleFrames(writer.layout(), first, last));
    writer.close();
}

}  // namespace tabulo::shipping::test
