// Looks at the served folders and their tables again and again, and puts what it sees on the board: new tables, new
// messages, what stands out. Only reads, and asks the system little while nothing changes.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "tool/console.h"
#include "tool/serve/table_board.h"
#include "tool/serve/watched_table.h"

namespace tabulo::tool::serve {

class TableWatch {
  public:
    // Of folders, and of single tables. Failure for what does not exist. Looks once before it returns; start() lets it
    // go on in threads of its own until it is destroyed.
    TableWatch(const std::vector<std::string>& arguments, TableBoard& board);
    void start();

    // How many tables are there.
    std::size_t tables() const noexcept { return tables_.size(); }

  private:
    struct Place {
        std::filesystem::path path;    // as it was named
        std::filesystem::path folder;  // which nothing may lead out of, without links
        std::string prefix;            // of ids
        bool isFile = false;
    };

    void look();
    bool lookAtFolders();
    void find(const Place& place, const std::filesystem::path& path,
              std::map<std::string, std::filesystem::path>* found);
    void lookThrough(const std::stop_token& stop);

    TableBoard& board_;
    std::vector<Place> places_;
    std::map<std::string, std::unique_ptr<WatchedTable>> tables_;  // by id
    std::vector<std::string> problems_;
    std::chrono::steady_clock::time_point lookedAtFolders_;
    std::size_t turn_ = 0;  // whose writer is asked for next
    std::jthread watching_;
    std::jthread lookingThrough_;
};

}  // namespace tabulo::tool::serve
