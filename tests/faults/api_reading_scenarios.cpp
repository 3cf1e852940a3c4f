// inspect, countByClass and Reader: an answer is the whole one, or an Error.
#include "tabulo/reader.h"
#include "tests/faults/api_steps.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t STORED = 11;  // two closed blocks and an open one

// What stands in front of a problem is the header's.
void inspects(ScenarioRun& run) {
    for (int times = 0; times < 2; ++times) {
        apiDid(run, API_INSPECT, [&](Answer& answer) {
            const TableInfo info = inspect(run.path());
            answer = {info.name, info.layout == layoutOf(run.shape) ? "its layout" : "another layout",
                      lineOf(info.fileSize), lineOf(info.headerSize), info.closedCleanly ? "closed" : "not closed"};
            if (info.problem) {
                throw Error(*info.problem);
            }
            for (const std::int64_t number : {info.closedBlocks, std::int64_t{info.openMessages}, info.messageCount}) {
                answer.push_back(lineOf(number));
            }
            for (const auto& id : info.lastIds) {
                answer.push_back(lineOf(id));
            }
            answer.push_back(lineOf(info.lastUniformId));
            answer.push_back(lineOf(info.lastGood));
            answer.push_back(lineOf(info.firstPending) + ", " + lineOf(info.lastPending));
            answer.push_back(lineOf(info.firstTime) + ", " + lineOf(info.lastTime));
        });
    }
}

void counts(ScenarioRun& run) {
    apiDid(run, API_WALK, [&](Answer& answer) {
        const ClassCounts counted = countByClass(run.path());
        for (const std::int64_t messages : counted.messages) {
            answer.push_back(lineOf(messages));
        }
        answer.push_back(lineOf(counted.withoutClass) + " of " + lineOf(counted.total));
        answer.push_back(counted.complete ? "complete" : "incomplete");
    });
}

void lookUp(ScenarioRun& run, Reader& reader) {
    const auto answers = [&](const auto& ask) {
        apiDid(run, API_READ, [&](Answer& answer) { answer.push_back(lineOf(ask())); });
    };
    for (int times = 0; times < 2; ++times) {
        answers([&] { return reader.lastId(tabulo::MessageClass::appTo); });
        answers([&] { return reader.lastId(tabulo::MessageClass::resent); });
        answers([&] { return reader.lastUniformId(); });
        answers([&] { return reader.lastGood(); });
        answers([&] { return reader.firstPending(); });
        answers([&] { return reader.lastPending(); });
        answers([&] { return reader.end(); });
        for (const std::int32_t number : {1, 4, 6, 9, 99}) {
            answers([&] { return reader.positionOfUniformId(number); });
            answers([&] { return reader.positionOf(number); });
        }
    }
}

std::string endingLine(Ending ending) {
    return "ending " + std::to_string(static_cast<int>(ending));
}

// Walks to the end. A walk that has failed is asked on: it may not skip or repeat.
void walk(ScenarioRun& run, const std::function<Messages()>& ask) {
    std::optional<Messages> messages;
    Answer all;
    for (int times = 0; times < 2; ++times) {
        apiDid(run, API_READ, [&](Answer& answer) {
            answer = all;
            try {
                if (!messages) {
                    messages.emplace(ask());
                }
                while (const tabulo::MessageView* message = messages->next()) {
                    answer.push_back(lineOf(*message));
                }
            } catch (...) {
                all = answer;
                throw;
            }
            all = answer;
            answer.push_back(endingLine(messages->ending()));
        });
    }
}

// Messages 3 to 9 but the fifth, which stand in all three blocks.
void query(ScenarioRun& run, Reader& reader) {
    for (const bool backward : {false, true}) {
        Query query;
        query.seqNums(3, 9).text(BuiltInText::text0, TextCondition::anyOf({"f0-3", "f0-4", "f0-6", "f0-8", "f0-9"}));
        if (backward) {
            query.backward();
        }
        walk(run, [&] { return reader.messages(query); });
    }
}

void walkAll(ScenarioRun& run, Reader& reader) {
    walk(run, [&] { return reader.messages(); });
    walk(run, [&] { return reader.messages(Query().backward()); });
}

// Between two places in the last two blocks; a message's number is counted when it is asked for.
void walkFromAPlace(ScenarioRun& run, Reader& reader) {
    std::optional<Position> from;
    std::optional<Position> before;
    apiDid(run, API_READ, [&](Answer& answer) {
        from = reader.positionOf(5);
        before = reader.positionOf(9);
        answer = {lineOf(from), lineOf(before)};
    });
    if (!from || !before) {
        return;
    }
    walk(run, [&] { return reader.messages(Query().from(*from).before(*before)); });
    walk(run, [&] { return reader.messages(Query().from(*from).before(*before).backward()); });
    apiDid(run, API_READ, [&](Answer& answer) {
        Messages messages = reader.messages(Query().from(*from));
        while (const tabulo::MessageView* message = messages.next()) {
            answer.push_back(lineOf(message->ordinal()));
        }
    });
}

template <typename T>
std::string rangeLine(const ValueRange<T>& range) {
    return lineOf(range.first) + " to " + lineOf(range.last);
}

void stepThroughBlocks(ScenarioRun& run, Reader& reader) {
    std::optional<Blocks> blocks;
    Answer all;
    for (int times = 0; times < 2; ++times) {
        apiDid(run, API_READ, [&](Answer& answer) {
            if (!blocks) {
                blocks.emplace(reader.blocks());
            }
            answer = all;
            const auto keep = [&](const std::string& line) {
                answer.push_back(line);
                all.push_back(line);
            };
            while (const BlockRecord* block = blocks->next()) {
                keep(lineOf(block->ordinal) + " " + lineOf(block->firstMessage) + " " + lineOf(block->offset) + " " +
                     lineOf(block->length) + " " + lineOf(block->messageCount) +
                     (block->closed ? " closed " : " open ") + rangeLine(block->seqNums) + ", " +
                     rangeLine(block->uniformIds) + ", " + rangeLine(block->times) + ", " +
                     lineOf(block->filterBitsSet.at(0)));
            }
            answer.push_back(endingLine(blocks->ending()));
        });
    }
}

using Reading = void (*)(ScenarioRun&, Reader&);

ScenarioStep reads(Reading reading) {
    return [reading](ScenarioRun& run) {
        std::optional<Reader> reader;
        apiDid(run, API_OPEN, [&](Answer& answer) {
            reader.emplace(run.path());
            answer.push_back(lineOf(reader->begin()));
        });
        if (reader) {
            reading(run, *reader);
        }
    };
}

// The table grows under the reader, by a writer that no fault hits.
ScenarioStep follows(const TableImage& grown, Reading reading) {
    return [=](ScenarioRun& run) {
        std::optional<Reader> reader;
        apiDid(run, API_OPEN, [&](Answer&) { reader.emplace(run.path()); });
        std::optional<Messages> messages;
        const auto goOn = [&](Answer& answer) {
            while (const tabulo::MessageView* message = messages->next()) {
                answer.push_back(lineOf(*message));
            }
            answer.push_back(endingLine(messages->ending()));
        };
        const bool begun = reader && apiDid(run, API_READ, [&](Answer& answer) {
                               messages.emplace(reader->messages());
                               goOn(answer);
                           });
        patchFile(run.path(), 0, grown.bytes());
        if (begun) {
            apiDid(run, API_READ, goOn);
            reading(run, *reader);
        }
    };
}

ScenarioStep unchanged(const TableImage& image) {
    return [image](ScenarioRun& run) {
        EXPECT_EQ(difference(readFile(run.path()), image.bytes()), "") << "a reader has changed the table";
    };
}

}  // namespace

std::vector<FaultScenario> apiReadingScenarios() {
    const auto closed = [](const TableShape& s) { return closedImage(s, simpleMessages(1, STORED, s)); };
    const auto unclosed = [](const TableShape& s) { return unclosedImage(s, simpleMessages(1, STORED, s)); };
    const auto beginning = [](const TableShape& s) { return unclosedImage(s, simpleMessages(1, 3, s)); };
    const TableImage table(smallShape(), closed);
    const TableImage left(smallShape(), unclosed);
    const TableImage large(largeFooterShape(), closed);
    const TableImage first(smallShape(), beginning);
    const auto placeFirst = [first, left](ScenarioRun& run) {
        first.place(run);
        left.bytes();  // made before the fault is in force
    };
    return {
        {"ApiInspect", placed(table), inspects, unchanged(table)},
        {"ApiInspectATableThatWasNotClosed", placed(left), inspects, unchanged(left)},
        {"ApiCountByClass", placed(large), counts, unchanged(large)},
        {"ApiLookUp", placed(table), reads(lookUp), unchanged(table)},
        {"ApiWalk", placed(table), reads(walkAll), unchanged(table)},
        {"ApiWalkFromAPlace", placed(table), reads(walkFromAPlace), unchanged(table)},
        {"ApiQuery", placed(table), reads(query), unchanged(table)},
        {"ApiQueryLargeFooters", placed(large), reads(query), unchanged(large)},
        {"ApiStepThroughBlocks", placed(large), reads(stepThroughBlocks), unchanged(large)},
        {"ApiGoOnAndLookUp", placeFirst, follows(left, lookUp), unchanged(left)},
        {"ApiGoOnAndQuery", placeFirst, follows(left, query), unchanged(left)},
    };
}

}  // namespace tabulo::internal::test
