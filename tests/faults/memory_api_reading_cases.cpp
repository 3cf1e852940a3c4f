// inspect, countByClass, Reader, queries, Follower, verify and salvage without memory.
#include "tabulo/damage.h"
#include "tests/faults/memory_api_case.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t STORED = 11;

using Prepare = std::function<void(MemoryStage&)>;

// Two closed blocks and an open one; some messages are larger than what readers begin with.
std::vector<Message> storedMessages(const TableShape& shape) {
    std::vector<Message> messages = simpleMessages(1, STORED, shape);
    messages[5].strings.back() = std::string(30000, 'x') + '\0';
    messages[9].strings.back() = std::string(40000, 'y') + '\0';
    return messages;
}

Bytes storedImage(const TableShape& shape) {
    return unclosedImage(shape, storedMessages(shape));
}

Bytes damagedImage(const TableShape& shape) {
    Bytes bytes = storedImage(shape);
    const TableMap map = mapOf(shape, storedMessages(shape));
    putU32(&bytes, map.frame(2).end - 4, 7);
    putU64(&bytes, map.openBlockStart - 8, 12345);
    return bytes;
}

Prepare placedFor(const TableImage& image) {
    return [image](MemoryStage& stage) {
        image.place(stage.run);
        stage.api = std::make_shared<ApiObjects>(
            ApiObjects{stage.run.path(), stage.run.path() + ".cut-100", layoutOf(stage.run.shape)});
    };
}

Prepare read(const TableImage& image) {
    return [image](MemoryStage& stage) {
        placedFor(image)(stage);
        stage.api->reader.emplace(stage.api->path);
    };
}

ErrorCode inspects(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        const TableInfo info = inspect(api.path);
        if (info.problem) {
            throw Error(*info.problem);
        }
        for (const std::int64_t number :
             {info.fileSize, info.closedBlocks, std::int64_t{info.openMessages}, info.messageCount,
              std::int64_t{info.lastUniformId.value_or(0)}, info.firstTime.value_or(0), info.lastTime.value_or(0),
              std::int64_t{info.layout == api.layout}}) {
            answer->add(number);
        }
    });
}

ErrorCode counts(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        const ClassCounts counted = countByClass(api.path);
        answer->add(counted.total);
        answer->add(counted.messages[static_cast<std::size_t>(tabulo::MessageClass::appTo)]);
        answer->add(counted.complete ? 1 : 0);
    });
}

ErrorCode opens(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.reader.emplace(api.path);
        addPosition(answer, api.reader->begin());
    });
}

ErrorCode opensWithLayout(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.reader.emplace(api.path, api.layout);
        addPosition(answer, api.reader->begin());
    });
}

ErrorCode looksUp(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        answer->add(api.reader->lastUniformId().value());
        answer->add(api.reader->lastGood().value().time);
        addPosition(answer, api.reader->end());
        for (const std::int32_t number : {1, 6, 10, 99}) {
            addPosition(answer, api.reader->positionOfUniformId(number));
            addPosition(answer, api.reader->positionOf(number).value_or(Position()));
        }
    });
}

// Goes on where it has stopped.
ErrorCode walk(MemoryStage& stage, Digests* answer, const Query& query) {
    const ErrorCode code = attempt(stage, [&](ApiObjects& api) {
        if (!api.messages) {
            api.messages.emplace(api.reader->messages(query));
        }
        while (const tabulo::MessageView* message = api.messages->next()) {
            stage.delivered.add(bytesOf(*message));
        }
        stage.delivered.add(static_cast<std::int64_t>(api.messages->ending()));
    });
    *answer = stage.delivered;
    return code;
}

template <bool backward>
ErrorCode walks(MemoryStage& stage, Digests* answer) {
    std::optional<Query> query;
    const ErrorCode code = attempt(stage, [&](ApiObjects&) {
        query.emplace();
        if (backward) {
            query->backward();
        }
    });
    return code == NO_ERROR ? walk(stage, answer, *query) : code;
}

// The fields are looked up by their names when the query is asked.
ErrorCode queries(MemoryStage& stage, Digests* answer) {
    std::optional<Query> query;
    const ErrorCode code = attempt(stage, [&](ApiObjects&) {
        query.emplace();
        query->seqNums(3, 10)
            .text(BuiltInText::text0, TextCondition::anyOf({"f0-3", "f0-4", "f0-6", "f0-10"}))
            .text("Symbol", TextCondition::above("f") || TextCondition::absent())
            .number("Price", IntegerCondition::between(0, 5000))
            .types({"D", "8"});
    });
    return code == NO_ERROR ? walk(stage, answer, *query) : code;
}

// A walk into damage, which is told again by who asks again. An Error that there is no memory for comes later.
template <bool backward>
ErrorCode walksIntoDamage(MemoryStage& stage, Digests* answer) {
    const ErrorCode code = attempt(stage, [&](ApiObjects& api) {
        if (!api.messages) {
            api.messages.emplace(api.reader->messages(backward ? Query().backward() : Query()));
        }
        while (stage.attempts < 2) {
            try {
                const tabulo::MessageView* message = api.messages->next();
                stage.delivered.add(message == nullptr ? std::string_view("the end") : bytesOf(*message));
                stage.attempts += message == nullptr ? 1 : 0;
            } catch (const Error& error) {
                if (error.code() == Code::outOfMemory) {
                    throw;
                }
                stage.delivered.add(static_cast<std::int64_t>(error.code()));
                stage.delivered.add(error.offset().value_or(-1));
                stage.attempts += 1;
            }
        }
    });
    *answer = stage.delivered;
    return code;
}

ErrorCode stepsIntoDamage(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        Blocks blocks = api.reader->blocks();
        for (int times = 0; times < 2;) {
            try {
                const BlockRecord* block = blocks.next();
                answer->add(block == nullptr ? -1 : block->offset);
                times += block == nullptr ? 1 : 0;
            } catch (const Error& error) {
                if (error.code() == Code::outOfMemory) {
                    throw;
                }
                answer->add(static_cast<std::int64_t>(error.code()));
                answer->add(error.offset().value_or(-1));
                times += 1;
            }
        }
    });
}

ErrorCode copiesAndMatches(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        const Matcher matcher(Query().seqNums(2, 7).text("Symbol", TextCondition::anyOf({"f2-3", "f2-6"})), api.layout);
        Messages messages = api.reader->messages();
        while (const tabulo::MessageView* message = messages.next()) {
            const MessageCopy copy(*message);
            const MessageCopy decoded(message->frame(), api.layout);
            answer->add(bytesOf(copy.view()));
            answer->add(bytesOf(decoded.view()));
            answer->add(matcher(copy.view()) ? 1 : 0);
        }
    });
}

ErrorCode stepsThroughBlocks(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        Blocks blocks = api.reader->blocks();
        while (const BlockRecord* block = blocks.next()) {
            answer->add(block->offset);
            answer->add(block->messageCount);
            answer->add(block->times.last);
            answer->add(block->filterBitsSet.at(3));
        }
        answer->add(static_cast<std::int64_t>(blocks.ending()));
    });
}

ErrorCode verifies(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        const VerifyResult result = verify(api.path, [&](const Finding& finding) {
            answer->add(finding.offset);
            answer->add(finding.text);
        });
        for (const std::int64_t number : {result.blocks, result.messages, result.damages, result.notes}) {
            answer->add(number);
        }
    });
}

// With a file that holds one more message, as a recovery may have cut it out.
Prepare withACutFile(const TableImage& image) {
    return [image](MemoryStage& stage) {
        placedFor(image)(stage);
        const std::vector<Message> messages = storedMessages(stage.run.shape);
        const std::size_t cut = mapOf(stage.run.shape, messages).frame(2).start;
        stage.api->secondPath = stage.run.path() + ".cut-" + std::to_string(cut);
        writeFile(stage.api->secondPath, frameOf(messages[1]));
    };
}

ErrorCode salvages(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        const auto give = [&](const tabulo::MessageView& message, const std::filesystem::path& file) {
            answer->add(bytesOf(message));
            answer->add(file == api.path ? 1 : 0);
        };
        const auto tell = [&](const Gap& gap) {
            answer->add(gap.offset);
            answer->add(gap.length);
        };
        const SalvageResult result = salvage(api.path, {give, tell});
        for (const std::int64_t number : {result.messages, result.fromCutFiles, result.gaps, result.gapBytes}) {
            answer->add(number);
        }
    });
}

// A second table, with the ids 101 and on.
Prepare withASecondTable(const TableImage& image) {
    return [image](MemoryStage& stage) {
        placedFor(image)(stage);
        stage.api->secondPath = stage.run.directory.file("second");
        writeFile(stage.api->secondPath, closedImage(stage.run.shape, simpleMessages(101, 105, stage.run.shape)));
    };
}

// A Follower that has failed has left out a table: another one goes on from where it has come to.
ErrorCode follows(MemoryStage& stage, Digests* answer) {
    ApiObjects& api = *stage.api;
    const ErrorCode code = attempt(stage, [&](ApiObjects&) {
        api.follower.emplace();
        api.follower->add(api.path, api.from[0]);
        api.follower->add(api.secondPath, api.from[1]);
        for (FollowEvent event = api.follower->next(std::chrono::milliseconds(0)); event.message != nullptr;
             event = api.follower->next(std::chrono::milliseconds(0))) {
            stage.delivered.add(bytesOf(*event.message));
            api.from[event.table] = FollowFrom::position(event.message->next());
        }
    });
    api.follower.reset();
    *answer = stage.delivered;
    return code;
}

}  // namespace

std::vector<MemoryCase> apiReadingCases() {
    const TableImage stored(largeFooterShape(), storedImage);
    const TableImage damaged(largeFooterShape(), damagedImage);
    return {
        {"ApiInspect", placedFor(stored), inspects},
        {"ApiCountByClass", placedFor(stored), counts},
        {"ApiOpenAReader", placedFor(stored), opens},
        {"ApiOpenAReaderWithALayout", placedFor(stored), opensWithLayout},
        {"ApiLookUp", read(stored), looksUp},
        {"ApiWalkForward", read(stored), walks<false>},
        {"ApiWalkBackward", read(stored), walks<true>},
        {"ApiQuery", read(stored), queries},
        {"ApiWalkIntoDamage", read(damaged), walksIntoDamage<false>},
        {"ApiWalkBackwardIntoDamage", read(damaged), walksIntoDamage<true>},
        {"ApiStepIntoDamage", read(damaged), stepsIntoDamage},
        {"ApiCopyAndMatch", read(stored), copiesAndMatches},
        {"ApiStepThroughBlocks", read(stored), stepsThroughBlocks},
        {"ApiVerifyADamagedTable", placedFor(damaged), verifies},
        {"ApiSalvageADamagedTable", withACutFile(damaged), salvages},
        {"ApiFollowTwoTables", withASecondTable(stored), follows},
    };
}

}  // namespace tabulo::internal::test
