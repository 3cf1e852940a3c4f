// Writer and SessionInfo without memory: what is refused is not stored.
#include "tests/faults/memory_api_case.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t STORED = 6;
constexpr std::array<std::int32_t, 6> TAGS = {2, 1, 3, 4, 5, 6};
constexpr std::array<SessionValue, 3> LATER = {{{1, 21}, {5, 25}, {6, 26}}};

using Prepare = std::function<void(MemoryStage&)>;

void emptyDirectory(MemoryStage& stage) {
    stage.run.shape = largeFooterShape();
    stage.api = std::make_shared<ApiObjects>(ApiObjects{stage.run.path(), {}, layoutOf(stage.run.shape)});
}

Prepare placedFor(const TableImage& image) {
    return [image](MemoryStage& stage) {
        emptyDirectory(stage);
        image.place(stage.run);
    };
}

// A table that is open for writing, and the simple messages that follow as an append takes them.
Prepare opened(const TableImage& image, std::size_t textSize = 20, std::int32_t count = 4) {
    return [image, textSize, count](MemoryStage& stage) {
        placedFor(image)(stage);
        ApiObjects& api = *stage.api;
        api.writer.emplace(Writer::open(api.path));
        stage.messages = simpleMessages(STORED + 1, STORED + count, stage.run.shape);
        for (Message& message : stage.messages) {
            message.strings.back() = std::string(textSize, 'x') + '\0';
            api.toAppend.push_back(borrowedMessage(message));
            api.frameStarts.push_back(api.frames.size());
            encode(api.toAppend.back(), api.layout, api.frames);
        }
        api.frameStarts.push_back(api.frames.size());
    };
}

void addWriter(Digests* answer, const Writer& writer) {
    addPosition(answer, writer.end());
    answer->add(static_cast<std::int64_t>(writer.warnings().size()));
}

ErrorCode creates(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.writer.emplace(Writer::openOrCreate(api.path, api.layout));
        addWriter(answer, *api.writer);
    });
}

ErrorCode opens(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.writer.emplace(Writer::open(api.path));
        addPosition(answer, api.writer->end());
    });
}

// Appends what has not been appended yet; the seventh and eighth message fill a block.
ErrorCode appends(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        while (stage.attempts < api.toAppend.size()) {
            api.writer->append(api.toAppend[stage.attempts]);
            stage.attempts += 1;
        }
        addPosition(answer, api.writer->end());
    });
}

// Appends those frames again that the Error has not told to be stored.
ErrorCode appendsFrames(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        try {
            stage.attempts += static_cast<std::size_t>(
                api.writer->appendFrames(std::span(api.frames).subspan(api.frameStarts[stage.attempts])));
        } catch (const Error& error) {
            stage.attempts += static_cast<std::size_t>(error.stored());
            throw;
        }
        addPosition(answer, api.writer->end());
    });
}

ErrorCode encodes(MemoryStage& stage, Digests* answer) {
    std::vector<std::byte> frames;
    const ErrorCode code = attempt(stage, [&](ApiObjects& api) {
        for (const tabulo::Message& message : api.toAppend) {
            encode(message, api.layout, frames);
            answer->add(std::string_view(reinterpret_cast<const char*>(frames.data()), frames.size()));
        }
    });
    return code;
}

ErrorCode closes(MemoryStage& stage, Digests*) {
    return attempt(stage, [&](ApiObjects& api) { api.writer->close(); });
}

ErrorCode commits(MemoryStage& stage, Digests*) {
    return attempt(stage, [&](ApiObjects& api) { api.writer->commit(); });
}

// Drops the table and goes on with it. A drop that has failed may have emptied the table and closed the Writer.
ErrorCode drops(MemoryStage& stage, Digests* answer) {
    const bool first = stage.lastId++ == 0;
    const ErrorCode code = attempt(stage, [&](ApiObjects& api) {
        if (first) {
            api.writer->drop();
        } else {
            api.writer.reset();
            api.writer.emplace(Writer::open(api.path, api.layout));
        }
    });
    return code == NO_ERROR ? appends(stage, answer) : code;
}

void sessionDirectory(MemoryStage& stage) {
    stage.api = std::make_shared<ApiObjects>(ApiObjects{sessionPath(stage.run), {}, {}});
}

Prepare sessionOpened(bool forWriting) {
    return [forWriting](MemoryStage& stage) {
        sessionDirectory(stage);
        sessionFile(0)(stage.run);
        stage.api->session.emplace(forWriting ? SessionInfo::openForWriting(stage.api->path)
                                              : SessionInfo::open(stage.api->path));
    };
}

void sessionPlaced(MemoryStage& stage) {
    sessionDirectory(stage);
    sessionFile(8)(stage.run);
}

void addValues(const SessionInfo& session, Digests* answer) {
    for (const SessionValue& value : session.values()) {
        answer->add(value.tag);
        answer->add(value.value);
    }
}

ErrorCode createsSession(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.session.reset();
        api.session.emplace(SessionInfo::openOrCreate(api.path, TAGS));
        addValues(*api.session, answer);
        api.session->write(LATER);  // a table that is opened again has zeros where a new one has nothing
    });
}

ErrorCode opensSession(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.session.reset();
        api.session.emplace(SessionInfo::open(api.path));
        addValues(*api.session, answer);
    });
}

ErrorCode opensSessionForWriting(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.session.reset();
        api.session.emplace(SessionInfo::openForWriting(api.path));
        addValues(*api.session, answer);
    });
}

ErrorCode refreshesSession(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.session->refresh();
        addValues(*api.session, answer);
    });
}

ErrorCode writesSession(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.session->write(LATER);
        addValues(*api.session, answer);
    });
}

ErrorCode dropsSession(MemoryStage& stage, Digests* answer) {
    return attempt(stage, [&](ApiObjects& api) {
        api.session->drop();
        addValues(*api.session, answer);
    });
}

ErrorCode closesSession(MemoryStage& stage, Digests*) {
    return attempt(stage, [&](ApiObjects& api) { api.session->close(); });
}

Bytes damagedFrame(const TableShape& shape) {
    const std::vector<Message> messages = simpleMessages(1, 3, shape);
    Bytes bytes = unclosedImage(shape, messages);
    putU32(&bytes, mapOf(shape, messages).frame(2).end - 4, 7);
    return bytes;
}

}  // namespace

std::vector<MemoryCase> apiWritingCases() {
    const TableShape shape = largeFooterShape();
    const TableImage closed(shape, [](const TableShape& s) { return closedImage(s, simpleMessages(1, STORED, s)); });
    const TableImage unclosed(shape,
                              [](const TableShape& s) { return unclosedImage(s, simpleMessages(1, STORED, s)); });
    const auto completes = [](const char* name, Prepare prepare, auto operate) {
        return MemoryCase{name, std::move(prepare), operate, OUT_OF_MEMORY_ERROR,
                          Leaves::filesThatTheNextAttemptCompletes};
    };
    return {
        completes("ApiCreateATable", emptyDirectory, creates),
        {"ApiOpenAWriter", placedFor(closed), opens},
        completes("ApiRecoverATableThatWasNotClosed", placedFor(unclosed), opens),
        completes("ApiRecoverADamagedFrame", placedFor({shape, damagedFrame}), opens),
        {"ApiEncode", opened(closed, 30000), encodes},
        completes("ApiAppend", opened(closed), appends),
        completes("ApiAppendLargeMessages", opened(closed, 30000), appends),
        completes("ApiAppendFrames", opened(closed, 20, 12), appendsFrames),
        completes("ApiAppendLargeFrames", opened(closed, 30000, 12), appendsFrames),
        completes("ApiAppendTheLargestFrames", opened(closed, 1200000, 4), appendsFrames),
        completes("ApiDrop", opened(closed), drops),
        {"ApiCommit", opened(closed), commits},
        {"ApiClose", opened(unclosed), closes},
        completes("ApiCreateASessionTable", sessionDirectory, createsSession),
        {"ApiOpenASessionTable", sessionPlaced, opensSession},
        completes("ApiRecoverASessionTable", sessionPlaced, opensSessionForWriting),
        {"ApiRefreshSessionValues", sessionOpened(false), refreshesSession},
        completes("ApiWriteSessionValues", sessionOpened(true), writesSession),
        completes("ApiDropSessionValues", sessionOpened(true), dropsSession),
        {"ApiCloseASessionTable", sessionOpened(true), closesSession},
    };
}

}  // namespace tabulo::internal::test
