// Operations of the public API as steps of scenarios: what each may throw, and what its Error has to say.
#pragma once

#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/message.h"
#include "tabulo/table_info.h"
#include "tests/faults/fault_scenario.h"

namespace tabulo::internal::test {

inline const Operation API_CREATE{"create a Writer", {FILE_OPEN_ERROR, FILE_FLUSH_ERROR}};
inline const Operation API_OPEN_WRITER{
    "open a Writer",
    {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_READ_ERROR, FILE_WRITE_ERROR, FILE_FLUSH_ERROR, FILE_TRUNCATE_ERROR}};
inline const Operation API_APPEND{"append", {FILE_WRITE_ERROR, FILE_FLUSH_ERROR, FILE_SEEK_ERROR}, {FILE_WRITE_ERROR}};
inline const Operation API_COMMIT{"commit", {FILE_FLUSH_ERROR}, {MASTER_INACTIVE_ERROR}, true};
inline const Operation API_DROP{
    "drop", {FILE_TRUNCATE_ERROR, SYSTEM_FILE_ERROR, FILE_OPEN_ERROR, FILE_FLUSH_ERROR}, {MASTER_INACTIVE_ERROR}};
inline const Operation API_CLOSE{"close", {FILE_FLUSH_ERROR, SYSTEM_FILE_ERROR}};

inline const Operation API_INSPECT{"inspect", {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_READ_ERROR}};
inline const Operation API_OPEN{"open", {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_READ_ERROR}};
inline const Operation API_READ{"read", {FILE_READ_ERROR, SYSTEM_FILE_ERROR}};
// Opens the files and reads them to the end.
inline const Operation API_WALK{"walk", {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_READ_ERROR}};
inline const Operation API_SESSION_OPEN{
    "open a SessionInfo",
    {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_SEEK_ERROR, FILE_READ_ERROR, FILE_FLUSH_ERROR, FILE_TRUNCATE_ERROR}};
inline const Operation API_SESSION_READ{"read values", {FILE_READ_ERROR, FILE_SEEK_ERROR, SYSTEM_FILE_ERROR}};
inline const Operation API_SESSION_WRITE{"write values", {FILE_FLUSH_ERROR}, {FILE_WRITE_ERROR}};

// How an operation of the public API has failed.
struct ApiFailure {
    ErrorCode code = NO_ERROR;
    std::string systemText = {};
    std::int64_t stored = 0;
};
// Runs one; fails the test when it throws anything but an Error, or an Error that does not name one of these files.
ApiFailure failureOf(const std::vector<std::string>& paths, const std::function<void()>& operate);
// The same as a step. It answers what `operate` has added when it fails, too. True when it succeeds.
bool apiDid(ScenarioRun& run, const Operation& operation, const std::vector<std::string>& paths,
            const std::function<void(Answer&)>& operate);
// The same of the run's table.
bool apiDid(ScenarioRun& run, const Operation& operation, const std::function<void(Answer&)>& operate);

Layout layoutOf(const TableShape& shape);
// Valid as long as the message.
tabulo::Message borrowedMessage(const Message& message);

std::string lineOf(const tabulo::MessageView& message);
std::string lineOf(const Position& position);
inline std::string lineOf(std::int64_t number) {
    return std::to_string(number);
}
inline std::string lineOf(const SequencePoint& point) {
    return std::to_string(point.seqNum) + " at " + std::to_string(point.time);
}
template <typename T>
std::string lineOf(const std::optional<T>& value) {
    return value.has_value() ? lineOf(*value) : "none";
}

}  // namespace tabulo::internal::test
