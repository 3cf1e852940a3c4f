#include "tests/adapters/nats/shipping_test.h"

#include <map>
#include <tuple>

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
        log.answers.clear();
        Shipper shipper(stream, options, words(&warned));
        // As often as it takes: now and then it is another process that goes on.
        do {
            stream.failNowAndThen(seed++, percent);
            try {
                shipper.run();
                return warned;
            } catch (const Unreachable&) {
                continue;
            }
        } while (seed % 4 != 0);
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

std::string ShippingTest::streamFault() const {
    std::map<std::string, Record> newest;
    for (const Stored& stored : log.records) {
        if (stored.subject.empty() || !isOfTable(recordOf(stored).kind)) {
            continue;
        }
        const Record record = recordOf(stored);
        const auto [known, isFirst] = newest.emplace(record.table, record);
        if (!isFirst && record.kind == RecordKind::message) {
            const auto place = [](const Record& of) { return std::tuple(of.incarnation, of.offset, of.at); };
            // A frame whose parts have not all come begins again.
            const bool isBegunAgain = record.offset == known->second.offset && record.at == 0 &&
                                      known->second.kind == RecordKind::message && !known->second.isLastPart();
            if (place(record) <= place(known->second) && !isBegunAgain) {
                return "the record " + std::to_string(stored.sequence) + " (" + stored.subject + ") stands at " +
                       std::to_string(record.offset) + " behind one at " + std::to_string(known->second.offset);
            }
            known->second = record;
        }
    }
    return "";
}

void ShippingTest::store(const std::string& table, std::int32_t first, std::int32_t last) {
    Writer writer = Writer::openOrCreate(source(table), layout);
    writer.appendFrames(tabulo::test::simpleFrames(writer.layout(), first, last));
    writer.close();
}

}  // namespace tabulo::shipping::test
