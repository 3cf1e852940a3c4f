#include "tests/crash/live_tables.h"

#include <unistd.h>

#include <algorithm>
#include <random>
#include <utility>

#include "tests/crash/crash_traffic.h"
#include "tests/crash/signal_points.h"

namespace tabulo::internal::test {

namespace {

constexpr int CALLS_PER_STOP = 60;

// The tables open for writing.
class LiveWriter {
  public:
    LiveWriter(const LiveTraffic& traffic, LiveState* state) : traffic_(traffic), state_(state) {}

    int open() {
        for (std::size_t i = 0; i < LIVE_TABLES; ++i) {
            tables_.at(i) = createTable(traffic_.root(), traffic_.shape(i));
            const ErrorCode code = mt_open(tables_.at(i).get(), OpenMode::write);
            if (code != NO_ERROR) {
                return state_->problem.report("the writer cannot open table " + std::to_string(i) + ": " +
                                              getErrorMessage(code));
            }
        }
        return 0;
    }
    int write(std::int32_t id) {
        const std::size_t table = traffic_.tableOf(id);
        const ErrorCode code =
            storeInAnyForm(tables_.at(table).get(), traffic_.message(id), static_cast<std::uint64_t>(id));
        if (code != NO_ERROR) {
            return state_->problem.report("message " + std::to_string(id) + " is refused: " + getErrorMessage(code));
        }
        state_->acknowledged.at(table) += 1;
        state_->lastId.store(id);
        return 0;
    }
    int close(bool savingTails) {
        for (MessageTablePtr& table : tables_) {
            if (savingTails && mt_close(table.get()) != NO_ERROR) {
                return state_->problem.report("the writer cannot close a table");
            }
            table.reset();
        }
        return 0;
    }

  private:
    const LiveTraffic& traffic_;
    LiveState* state_;
    std::array<MessageTablePtr, LIVE_TABLES> tables_;
};

}  // namespace

LiveTraffic::LiveTraffic(std::string root, std::uint32_t seed, std::int32_t last)
    : root_(std::move(root)), seed_(seed), last_(last) {
    shapes_[0].name = "one";
    shapes_[0].messagesPerBlock = 4;
    shapes_[1].name = "two";
    shapes_[1].messagesPerBlock = 200;
    for (TableShape& shape : shapes_) {
        shape.stringNames = {"Symbol"};
        shape.numericNames = {"Quantity"};
    }
    for (std::int32_t id = 1; id <= last; ++id) {
        ids_.at(tableOf(id)).push_back(id);
    }
}

std::size_t LiveTraffic::tableOf(std::int32_t id) const {
    return mixed(seed_, static_cast<std::uint64_t>(id)) % LIVE_TABLES;
}

Message LiveTraffic::message(std::int32_t id) const {
    Message message = simpleMessage(id, shape(tableOf(id)));
    const std::uint64_t number = mixed(seed_, static_cast<std::uint64_t>(id) << 32);
    message.strings[2] = withNul("S" + std::to_string(number % 50));
    message.strings[3] = std::string(number % 401 == 0 ? 20000 : 1 + number % 300, static_cast<char>('a' + id % 26));
    message.numbers[0] = numericValue_ofLong(static_cast<std::int64_t>(number % 100));
    return message;
}

std::vector<std::int32_t> LiveTraffic::matches(std::size_t table, LiveFilter filter, std::size_t count) const {
    std::vector<std::int32_t> found;
    std::copy_if(ids(table).begin(), ids(table).begin() + static_cast<std::ptrdiff_t>(count), std::back_inserter(found),
                 [&](std::int32_t id) {
                     const std::uint64_t number = mixed(seed_, static_cast<std::uint64_t>(id) << 32);
                     switch (filter) {
                         case LiveFilter::symbol:
                             return number % 50 == 7;
                         case LiveFilter::quantities:
                             return number % 100 == 3 || number % 100 == 77;
                         case LiveFilter::sequence:
                             return id >= last_ / 4;
                         case LiveFilter::none:
                             break;
                     }
                     return true;
                 });
    return found;
}

int makeLiveTables(const LiveTraffic& traffic, LiveState* state) {
    LiveWriter writer(traffic, state);
    int result = writer.open();
    for (std::int32_t id = 1; id <= PRESENT_BEFORE && result == 0; ++id) {
        result = writer.write(id);
    }
    return result == 0 ? writer.close(true) : result;
}

int writeLive(const LiveTraffic& traffic, LiveState* state, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    stopAtCalls(CALLS_PER_STOP, seed);
    LiveWriter writer(traffic, state);
    int result = writer.open();
    state->holding.store(result == 0);
    for (std::int32_t id = PRESENT_BEFORE + 1; id <= traffic.last() && result == 0; ++id) {
        result = writer.write(id);
        if (random() % 4 == 0) {
            ::usleep(static_cast<useconds_t>(random() % 2000));
        }
        if (result != 0 || random() % 150 != 0) {
            continue;
        }
        state->releasing.store(true);
        if (!state->keepOpen.load()) {
            state->holding.store(false);
            result = writer.close(random() % 2 == 0);
            result = result == 0 ? writer.open() : result;
            state->holding.store(result == 0);
        }
        state->releasing.store(false);
    }
    state->releasing.store(true);
    while (state->keepOpen.load()) {
        ::usleep(100);
    }
    return result == 0 ? writer.close(true) : result;
}

}  // namespace tabulo::internal::test
