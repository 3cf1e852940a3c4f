#include "tool/serve/table_board.h"

#include <utility>

namespace tabulo::tool::serve {

Sight TableBoard::find(const std::string& id) const {
    const std::lock_guard lock(mutex_);
    const auto found = tables_.find(id);
    return found == tables_.end() ? nullptr : found->second;
}

TableBoard::News TableBoard::all() const {
    return newsSince(0, std::chrono::milliseconds(0));
}

TableBoard::News TableBoard::newsSince(std::uint64_t version, std::chrono::milliseconds most) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, most, [&] { return told_ > version; });
    News news;
    news.version = told_;
    news.problems = problems_;
    for (const auto& [id, sight] : tables_) {
        if (sight->version > version) {
            news.tables.push_back(sight);
        }
    }
    for (const auto& [id, when] : removed_) {
        if (version > 0 && when > version) {
            news.removed.push_back(id);
        }
    }
    return news;
}

void TableBoard::put(TableSight sight) {
    const std::lock_guard lock(mutex_);
    sight.version = version_;
    removed_.erase(sight.id);
    const std::string id = sight.id;
    tables_[id] = std::make_shared<const TableSight>(std::move(sight));
}

void TableBoard::remove(const std::string& id) {
    const std::lock_guard lock(mutex_);
    tables_.erase(id);
    removed_[id] = version_;
}

void TableBoard::setProblems(std::vector<std::string> problems) {
    const std::lock_guard lock(mutex_);
    problems_ = std::move(problems);
}

void TableBoard::tell() {
    const std::lock_guard lock(mutex_);
    told_ = version_;
    version_ += 1;
    changed_.notify_all();
}

}  // namespace tabulo::tool::serve
