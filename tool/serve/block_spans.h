// The blocks of a table, as far as the picture of its times needs them: read once, and then only what is new. Any
// thread may ask.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <vector>

#include "tabulo/reader.h"

namespace tabulo::tool::serve {

struct BlockSpan {
    std::int64_t firstTime = 0;
    std::int64_t lastTime = 0;
    std::int64_t firstMessage = 0;
    std::int64_t offset = 0;
    std::int32_t messages = 0;
};

class BlockSpans {
  public:
    explicit BlockSpans(std::filesystem::path path) : path_(std::move(path)) {}

    // Those of all closed blocks and of the open one as they are now; up to damage, if there is any. Errors of opening
    // the table.
    std::vector<BlockSpan> all(const Work& work = {});

  private:
    void extend(const Work& work);

    std::filesystem::path path_;
    std::mutex mutex_;
    std::optional<Reader> reader_;
    std::optional<BlockRecord> last_;  // the newest of spans_, which may have been open
    std::vector<BlockSpan> spans_;
};

}  // namespace tabulo::tool::serve
