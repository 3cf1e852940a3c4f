// Tables that are shipped into a log in memory, and received from it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "adapters/nats/receiver.h"
#include "adapters/nats/shipper.h"
#include "tests/adapters/nats/memory_stream.h"
#include "tests/api/api_test.h"

namespace tabulo::shipping::test {

class ShippingTest : public ::testing::Test {
  protected:
    ShippingTest();

    std::filesystem::path source(const std::string& table) const { return sources / table; }
    std::filesystem::path copy(const std::string& table) const { return copies / table; }

    // Until all that the tables hold, or the stream, has gone over; what was warned about.
    std::vector<std::string> ship(ShipOptions options = {});
    std::vector<std::string> receive();
    // Empty when the copy is byte for byte the source, which must be closed; else what differs.
    std::string copyFault(const std::string& table) const;

    // Empty when the stream has each table's messages once and in their order, for who reads all of it; else what is
    // not so.
    std::string streamFault() const;

    // Stores simple messages `first` to `last` in a table of the sources, which is made when there is none.
    void store(const std::string& table, std::int32_t first, std::int32_t last);

    const tabulo::test::TemporaryDirectory directory;
    std::filesystem::path sources;
    std::filesystem::path copies;
    Layout layout = tabulo::test::ordersLayout();
    MemoryLog log;
    std::vector<std::string> said;
    int percent = 0;         // of publishes that fail
    std::uint32_t seed = 1;  // of the failures
    std::size_t limit = 1 << 20;

  private:
    Words words(std::vector<std::string>* warned);
};

}  // namespace tabulo::shipping::test
