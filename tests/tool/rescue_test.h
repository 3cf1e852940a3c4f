// What the tests of the verbs that rescue and copy tables share.
#pragma once

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tabulo/damage.h"
#include "tabulo/reader.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

// No file of this process and of those that it starts becomes larger, as long as the object lives.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(std::uint64_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        struct rlimit limit = before_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    struct rlimit before_ {};
};

class RescueTest : public ToolTest {
  protected:
    static CommandSettings signalled(const std::string& directory, int signal, std::chrono::microseconds after) {
        CommandSettings settings;
        settings.directory = directory;
        settings.meanwhile = [signal, after](pid_t id) {
            std::this_thread::sleep_for(after);
            ::kill(id, signal);
        };
        return settings;
    }
    // The names of everything in a folder, hidden ones too.
    static std::vector<std::string> namesIn(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    static std::vector<Bytes> framesOf(const std::string& path) {
        std::vector<Bytes> frames;
        Reader reader(path);
        for (const MessageView& message : reader.messages()) {
            const auto* begin = reinterpret_cast<const std::uint8_t*>(message.frame().data());
            frames.emplace_back(begin, begin + message.frame().size());
        }
        return frames;
    }
    static std::vector<std::int32_t> idsOf(const std::string& path) {
        std::vector<std::int32_t> ids;
        Reader reader(path);
        for (const MessageView& message : reader.messages()) {
            ids.push_back(message.uniformId());
        }
        return ids;
    }
    static std::vector<std::int32_t> range(std::int32_t first, std::int32_t last) {
        std::vector<std::int32_t> ids;
        for (std::int32_t id = first; id <= last; ++id) {
            ids.push_back(id);
        }
        return ids;
    }
    // What is wrong with a table; empty when nothing is.
    static std::string damageOf(const std::string& path) {
        std::string damage;
        verify(path, [&](const Finding& finding) { damage += finding.damage ? finding.text + "; " : ""; });
        return damage;
    }
};

}  // namespace tabulo::tool::test
