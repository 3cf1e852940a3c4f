// What the tests of following tables share: some tables with one message layout, and what a Follower gave.
#pragma once

#include <string>
#include <vector>

#include "tabulo/follower.h"
#include "tabulo/writer.h"
#include "tests/api/api_test.h"

namespace tabulo::test {

class FollowerTest : public ::testing::Test {
  protected:
    static constexpr std::chrono::milliseconds patience{20000};  // for what must come
    static constexpr std::chrono::milliseconds now{0};

    std::filesystem::path path(const std::string& name) const { return directory.file(name); }
    Writer make(const std::string& name) const { return Writer::create(path(name), layout); }
    // Appends messages with these uniform ids.
    static void append(Writer& writer, const std::vector<std::int32_t>& uniformIds);

    // An event as "orders 7", "dropped orders", "timed out" and so on.
    static std::string shown(const Follower& follower, const FollowEvent& event);
    // The next event, waiting for it.
    static std::string next(Follower& follower) { return shown(follower, follower.next(patience)); }
    // Everything that is there now.
    static std::vector<std::string> all(Follower& follower);

    const TemporaryDirectory directory;
    Layout layout = ordersLayout();
    Follower follower;
};

}  // namespace tabulo::test
