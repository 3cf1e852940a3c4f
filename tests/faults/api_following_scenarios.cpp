// Follower over two tables that grow, one of which is dropped.
#include "tabulo/follower.h"
#include "tests/faults/api_steps.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

constexpr std::chrono::seconds LONG(5);  // longer than a Follower waits for a file that is only being made

TableShape shapeOf(const char* name) {
    TableShape shape = smallShape();
    shape.name = name;
    return shape;
}

std::vector<Message> everySecond(std::int32_t first, std::int32_t count, const TableShape& shape) {
    std::vector<Message> messages;
    for (std::int32_t i = 0; i < count; ++i) {
        messages.push_back(simpleMessage(first + 2 * i, shape));
    }
    return messages;
}

const TableShape ODD = shapeOf("odd");
const TableShape EVEN = shapeOf("even");

// The files before the faults, those that come while they are in force, and the one behind the drop of `odd`.
struct Images {
    Bytes odd = unclosedImage(ODD, everySecond(1, 5, ODD));
    Bytes even = closedImage(EVEN, everySecond(2, 4, EVEN));
    Bytes grownOdd = unclosedImage(ODD, everySecond(1, 9, ODD));
    Bytes droppedOdd = unclosedImage(ODD, everySecond(101, 3, ODD));
};
const Images& images() {
    static const Images all;
    return all;
}

// Where following has come to. A Follower that has failed is made anew from there: it may not skip or repeat.
struct Followed {
    ScenarioRun& run;
    std::vector<std::string> paths;
    std::vector<FollowFrom> from;
    std::optional<Follower> follower = {};
    Answer answer = {};
    bool awaitsDrop = false;  // of the first table

    // Asks for so many events more, once again when that fails.
    void take(std::size_t count);

  private:
    void goOn(std::size_t wanted);
    void add(std::size_t table, const std::string& event);
    void giveUp();
};

void Followed::add(std::size_t table, const std::string& event) {
    answer.push_back(std::to_string(table) + ": " + event);
}

void Followed::goOn(std::size_t wanted) {
    if (!follower) {
        follower.emplace();
        for (std::size_t i = 0; i < paths.size(); ++i) {
            follower->add(paths[i], from[i]);
        }
    }
    while (answer.size() < wanted) {
        const FollowEvent event = follower->next(LONG);
        if (event.kind == FollowEventKind::message) {
            add(event.table, lineOf(*event.message));
        } else if (event.kind == FollowEventKind::dropped) {
            awaitsDrop = false;
            add(event.table, "dropped");
        } else {
            return;  // a part of the answer, which no success may be
        }
    }
}

// Who has not heard of the drop begins with what was stored since.
void Followed::giveUp() {
    for (std::size_t i = 0; follower && i < follower->tableCount(); ++i) {
        from[i] = FollowFrom::position(follower->position(i));
    }
    if (awaitsDrop) {
        from[0] = FollowFrom::beginning();
        awaitsDrop = false;
        add(0, "dropped");
    }
    follower.reset();
}

void Followed::take(std::size_t count) {
    const std::size_t wanted = answer.size() + count;
    for (int times = 0; times < 2; ++times) {
        const ApiFailure failure = failureOf(paths, [&] { goOn(wanted); });
        run.did(API_WALK, failure.code, answer);
        run.steps.back().systemText = failure.systemText;
        if (failure.code != NO_ERROR) {
            giveUp();
        }
    }
}

void prepareTables(ScenarioRun& run) {
    run.shape = ODD;
    writeFile(run.directory.file("odd"), images().odd);
    writeFile(run.directory.file("even"), images().even);
}

void followsTwoTables(ScenarioRun& run) {
    Followed followed{run,
                      {run.directory.file("odd"), run.directory.file("even")},
                      {FollowFrom::beginning(), FollowFrom::beginning()}};
    followed.take(9);
    patchFile(run.directory.file("odd"), 0, images().grownOdd);
    followed.take(4);
}

void followsADroppedTable(ScenarioRun& run) {
    Followed followed{run, {run.directory.file("odd")}, {FollowFrom::uniformId(7)}};
    followed.take(2);
    writeFile(run.directory.file("odd"), images().droppedOdd);
    if (followed.follower) {
        followed.awaitsDrop = true;
        followed.take(4);
    }
}

ScenarioStep unchanged(const Bytes& odd) {
    return [&odd](ScenarioRun& run) {
        EXPECT_EQ(difference(readFile(run.directory.file("odd")), odd), "");
        EXPECT_EQ(difference(readFile(run.directory.file("even")), images().even), "");
    };
}

}  // namespace

std::vector<FaultScenario> apiFollowingScenarios() {
    return {
        {"ApiFollowTwoTables", prepareTables, followsTwoTables,
         [](ScenarioRun& r) { unchanged(images().grownOdd)(r); }},
        {"ApiFollowADroppedTable", prepareTables, followsADroppedTable,
         [](ScenarioRun& r) { unchanged(images().droppedOdd)(r); }},
    };
}

}  // namespace tabulo::internal::test
