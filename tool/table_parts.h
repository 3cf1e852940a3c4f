// New tables in a folder that messages are shared out to.
#pragma once

#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <string>
#include <string_view>

#include "tabulo/table_info.h"
#include "tool/console.h"
#include "tool/new_table.h"

namespace tabulo::tool {

// What is in one of them.
struct TablePart {
    MessageSum sum{};
    std::int64_t firstTime = 0;  // the smallest
    std::int64_t lastTime = 0;   // the largest
};

// However many tables there are, few of them are open at a time.
class TableParts {
  public:
    TableParts(std::filesystem::path folder, const Layout& layout);

    // Appends to the table of this name, which is made when it is new.
    void add(const std::string& name, const MessageView& message);
    // Closes all tables, opens each again and checks it, and commits them to the disk.
    void finish(Console& console);
    const std::map<std::string, TablePart>& parts() const noexcept { return parts_; }

  private:
    struct Open {
        std::string name;
        TablePart* part;
        BatchWriter writer;
    };

    Open& openPart(const std::string& name);

    std::filesystem::path folder_;
    const Layout& layout_;
    std::map<std::string, TablePart> parts_;
    std::list<Open> open_;  // the one that was used last in front
};

}  // namespace tabulo::tool
