// The served tables as everybody sees them: what the watch has put here last. Any thread may ask.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tool/serve/table_sight.h"

namespace tabulo::tool::serve {

using Sight = std::shared_ptr<const TableSight>;

class TableBoard {
  public:
    struct News {
        std::uint64_t version = 0;
        std::vector<Sight> tables{};         // by id
        std::vector<std::string> removed{};  // ids
        std::vector<std::string> problems{};
    };

    // By its id; null when there is none.
    Sight find(const std::string& id) const;
    // All of them, by id.
    News all() const;
    // What has changed behind a version; waits for it at most so long.
    News newsSince(std::uint64_t version, std::chrono::milliseconds most) const;

    // For the watch: puts a table in the place of what was known of it, or takes it away; `tell` lets those who wait
    // see all of that.
    void put(TableSight sight);
    void remove(const std::string& id);
    void setProblems(std::vector<std::string> problems);
    void tell();

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::uint64_t version_ = 1;  // that of what is put next
    std::uint64_t told_ = 0;
    std::map<std::string, Sight> tables_;
    std::map<std::string, std::uint64_t> removed_;
    std::vector<std::string> problems_;
};

}  // namespace tabulo::tool::serve
