// Operations of the public API without memory: each gives std::bad_alloc, or an Error of the case's code.
#pragma once

#include <array>
#include <filesystem>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/follower.h"
#include "tabulo/reader.h"
#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/faults/api_steps.h"
#include "tests/faults/memory_case.h"

namespace tabulo::internal::test {

struct ApiObjects {
    std::filesystem::path path;
    std::filesystem::path secondPath;
    Layout layout;
    std::optional<Reader> reader = {};
    std::optional<Messages> messages = {};  // goes before the reader
    std::optional<Writer> writer = {};
    std::optional<SessionInfo> session = {};
    std::optional<Follower> follower = {};
    std::array<FollowFrom, 2> from = {};         // of a Follower that is made anew
    std::vector<tabulo::Message> toAppend = {};  // borrowed from the stage's
    std::vector<std::byte> frames = {};          // of the same
    std::vector<std::size_t> frameStarts = {};
};

// Does one, whose Error has to name one of the stage's files.
template <typename Operate>
ErrorCode attempt(MemoryStage& stage, const Operate& operate) {
    try {
        operate(*stage.api);
        return NO_ERROR;
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    } catch (const Error& error) {
        const std::string_view path = error.path().native();
        stage.misnamed = stage.misnamed ||
                         (!path.empty() && path != stage.api->path.native() && path != stage.api->secondPath.native());
        return static_cast<ErrorCode>(error.code());
    }
}

inline std::string_view bytesOf(const tabulo::MessageView& message) {
    return {reinterpret_cast<const char*>(message.frame().data()), message.frame().size()};
}

inline void addPosition(Digests* answer, const Position& position) {
    answer->add(position.block);
    answer->add(position.offset);
}

}  // namespace tabulo::internal::test
