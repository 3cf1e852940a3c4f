// What the tests of the public API share.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/message.h"
#include "tabulo/table_info.h"
#include "tests/support/bytes.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::test {

using internal::test::Bytes;
using internal::test::difference;
using internal::test::readFile;
using internal::test::TemporaryDirectory;
using internal::test::toHex;

// Runs a call that must throw, and gives its Error; fails the test, with an empty Error, when it does not.
inline Error errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    ADD_FAILURE() << "the call has not failed";
    return Error(Error::Details{});
}

#define EXPECT_TABULO_ERROR(expected, call)                                                      \
    do {                                                                                         \
        const ::tabulo::Error error_ = ::tabulo::test::errorOf([&] { call; });                   \
        EXPECT_EQ(error_.name(), ::tabulo::codeName(::tabulo::Code::expected)) << error_.what(); \
    } while (false)

// A layout with two texts and two numbers.
Layout ordersLayout(std::int32_t messagesPerBlock = 3);

// The n-th message of such a table, with texts of its own: id n (APP_TO), uniformId n, seqNum n, time 1000 n, type "D".
// Every third has no first text, every fourth no first number.
class SimpleMessage {
  public:
    explicit SimpleMessage(std::int32_t n);
    SimpleMessage(const SimpleMessage&) = delete;
    SimpleMessage& operator=(const SimpleMessage&) = delete;

    Message message;

  private:
    std::vector<std::string> texts_;
};

// The frames of simple messages `first` to `last`, one behind the other.
std::vector<std::byte> simpleFrames(const Layout& layout, std::int32_t first, std::int32_t last);

// A table of its own in a directory of its own.
class TableTest : public ::testing::Test {
  protected:
    std::filesystem::path path() const { return directory.file("orders"); }
    Bytes fileBytes() const { return readFile(path().string()); }

    const TemporaryDirectory directory;
    Layout layout = ordersLayout();
};

}  // namespace tabulo::test
