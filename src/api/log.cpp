#include "tabulo/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "api/call.h"
#include "api/log_gathering.h"
#include "core/log.h"
#include "core/platform.h"
#include "storage/file_platform.h"

namespace tabulo {

namespace api {

namespace {

thread_local bool handling = false;  // this thread is inside the handler
// The library writes a line in pieces; the pieces of one line come from one thread, without others between them.
thread_local std::string pieces;

// Never freed: what lives as long as the program may still write lines when statics are destroyed.
struct Handling {
    std::mutex access;
    std::shared_ptr<const LogHandler> handler;  // guarded by `access`
    std::mutex calls;                           // held while the handler runs
};

Handling& shared() {
    static auto* const state = new Handling;
    return *state;
}

std::shared_ptr<const LogHandler> replaceHandler(std::shared_ptr<const LogHandler> handler) {
    Handling& state = shared();
    const std::lock_guard lock(state.access);
    state.handler.swap(handler);
    return handler;
}

std::shared_ptr<const LogHandler> currentHandler() {
    Handling& state = shared();
    const std::lock_guard lock(state.access);
    return state.handler;
}

void handOn(LogLevel level, std::string_view line) {
    if (handling) {
        return;  // what the handler itself makes the library say
    }
    const std::shared_ptr<const LogHandler> handler = currentHandler();
    if (handler != nullptr) {
        const std::lock_guard lock(shared().calls);
        handling = true;
        try {
            (*handler)(level, line);
        } catch (...) {  // a log line must not end what it tells of
        }
        handling = false;
    }
}

TABULO_PRINTF(2, 0) void addPiece(LogLevel level, const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) {
        return;
    }
    const std::size_t start = pieces.size();
    pieces.resize(start + static_cast<std::size_t>(length) + 1);
    std::vsnprintf(pieces.data() + start, static_cast<std::size_t>(length) + 1, format, arguments);
    pieces.pop_back();  // the terminating zero byte
    std::size_t end = pieces.find('\n');
    while (end != std::string::npos) {
        const std::string line = pieces.substr(0, end);
        pieces.erase(0, end + 1);
        handOn(level, line);
        end = pieces.find('\n');
    }
}

template <LogLevel level>
TABULO_PRINTF(2, 0)
void writePiece(internal::LogChannel*, const char* format, std::va_list arguments) {
    try {
        addPiece(level, format, arguments);
    } catch (...) {  // no memory: the line is lost
        pieces.clear();
    }
}

void releaseNothing(internal::LogChannel*) {
}

void releaseNothing(internal::LogFacility*) {
}

internal::LogChannel noteChannel{releaseNothing, writePiece<LogLevel::note>};
internal::LogChannel warningChannel{releaseNothing, writePiece<LogLevel::warning>};
internal::LogFacility facility{releaseNothing, nullptr, &noteChannel, &warningChannel, nullptr};

bool install() noexcept {
    internal::log_setDebugStream(nullptr);
    internal::log_setFacility(&facility);
    return true;
}

}  // namespace

void log_becomeQuiet() noexcept {
    [[maybe_unused]] static const bool installed = install();
}

}  // namespace api

void setLogHandler(LogHandler handler) {
    api::log_becomeQuiet();
    api::replaceHandler(handler ? std::make_shared<const LogHandler>(std::move(handler)) : nullptr);
}

void setDebugLog(const std::optional<std::filesystem::path>& file) {
    api::log_becomeQuiet();
    if (!file.has_value()) {
        internal::log_setDebugStream(nullptr);
        return;
    }
    const std::string path = api::checkedPath(*file);
    std::FILE* stream = internal::platform_openLog(path.c_str());
    if (stream == nullptr) {
        const int error = errno;
        throw Error({.code = Code::fileOpen, .path = *file, .systemText = internal::filePlatform_errorText(error)});
    }
    internal::log_setDebugStream(stream);
}

}  // namespace tabulo
