#include "tests/faults/api_steps.h"

#include <algorithm>

namespace tabulo::internal::test {

namespace {

// A text without the zero byte that ends it.
Text textOf(const std::optional<std::string>& stored) {
    return stored ? Text(std::string_view(*stored).substr(0, stored->size() - 1)) : Text();
}

}  // namespace

ApiFailure failureOf(const std::vector<std::string>& paths, const std::function<void()>& operate) {
    try {
        operate();
        return {};
    } catch (const Error& error) {
        EXPECT_NE(std::find(paths.begin(), paths.end(), error.path()), paths.end()) << error.what();
        return {static_cast<ErrorCode>(error.code()), error.systemText(), error.stored()};
    } catch (const std::exception& other) {
        ADD_FAILURE() << "it throws what no operation may: " << other.what();
    }
    return {JNI_ERROR};
}

bool apiDid(ScenarioRun& run, const Operation& operation, const std::vector<std::string>& paths,
            const std::function<void(Answer&)>& operate) {
    Answer answer;
    const ApiFailure failure = failureOf(paths, [&] { operate(answer); });
    EXPECT_EQ(failure.stored, 0) << operation.name << " tells of stored messages";
    const bool done = run.did(operation, failure.code, std::move(answer));
    run.steps.back().systemText = failure.systemText;
    return done;
}

bool apiDid(ScenarioRun& run, const Operation& operation, const std::function<void(Answer&)>& operate) {
    return apiDid(run, operation, {run.path()}, operate);
}

Layout layoutOf(const TableShape& shape) {
    Layout layout;
    layout.texts = shape.stringNames;
    layout.numbers = shape.numericNames;
    layout.messagesPerBlock = shape.messagesPerBlock;
    layout.summarisedTexts = shape.summarisedStringFieldCount + static_cast<std::int32_t>(shape.stringNames.size());
    return layout;
}

tabulo::Message borrowedMessage(const Message& message) {
    const MessageMetadata& metadata = message.metadata;
    tabulo::Message borrowed;
    borrowed.uniformId = metadata.uniformId;
    borrowed.seqNum = metadata.seqNum;
    borrowed.prevSeqNum = metadata.prevSeqNum;
    borrowed.id = metadata.connMsgId;
    borrowed.time = metadata.timestamp;
    borrowed.type = metadata.msgType.data();
    borrowed.possDup = metadata.isPossDupFlag != 0;
    borrowed.outOfSequence = metadata.isOutOfSequence != 0;
    borrowed.text0 = textOf(message.strings.at(0));
    borrowed.text1 = textOf(message.strings.at(1));
    const std::size_t wire = message.strings.size() - 2;
    for (std::size_t i = 2; i < wire; ++i) {
        borrowed.texts.push_back(textOf(message.strings[i]));
    }
    borrowed.wire = textOf(message.strings[wire]);
    borrowed.nonMetadata = textOf(message.strings[wire + 1]);
    for (const NumericValue& number : message.numbers) {
        borrowed.numbers.emplace_back(number.type == NumericType::absent ? Number() : Number(number.longValue));
    }
    return borrowed;
}

std::string lineOf(const tabulo::MessageView& message) {
    const std::span<const std::byte> frame = message.frame();
    return std::to_string(message.uniformId()) + " " + lineOf(message.position()) + " " + lineOf(message.next()) + " " +
           std::string(reinterpret_cast<const char*>(frame.data()), frame.size());
}

std::string lineOf(const Position& position) {
    return std::to_string(position.block) + "/" + std::to_string(position.offset);
}

}  // namespace tabulo::internal::test
