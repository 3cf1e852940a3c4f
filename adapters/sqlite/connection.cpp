#include "adapters/sqlite/connection.h"

#include <algorithm>
#include <chrono>

#include "adapters/sqlite/table_set.h"

namespace tabulo::sqlite {

void Connection::remove(TableSet* tables) noexcept {
    sets_.erase(std::remove(sets_.begin(), sets_.end(), tables), sets_.end());
}

void Connection::cursorOpened() {
    openCursors_ += 1;
    if (openCursors_ == 1) {
        moment_ += 1;
        for (TableSet* tables : sets_) {
            tables->look(moment_);
        }
    }
}

void Connection::cursorClosed() noexcept {
    openCursors_ -= 1;
    if (openCursors_ == 0) {
        sqlite3_finalize(question_);  // a connection with a statement that is left cannot be closed
        question_ = nullptr;
    }
}

// Before release 3.41 SQLite does not tell whether it was interrupted, except by refusing to step a statement. To have
// one takes longer than a look-up by the side index; work that is shorter than the time between two questions ends
// before it matters, and SQLite itself looks at each row.
void Connection::checkInterrupt() {
    constexpr std::chrono::milliseconds APART{5};
    const auto now = std::chrono::steady_clock::now();
    if (now < askedLast_ + APART) {
        return;
    }
    askedLast_ = now;
    if (question_ == nullptr &&
        sqlite3_prepare_v3(database_, "SELECT 1", -1, SQLITE_PREPARE_PERSISTENT, &question_, nullptr) != SQLITE_OK) {
        return;
    }
    const int code = sqlite3_step(question_);
    sqlite3_reset(question_);
    if (code == SQLITE_INTERRUPT) {
        throw Interrupted{};
    }
}

Work Connection::work() {
    return {.progress = [this](const Progress&) { checkInterrupt(); }};
}

}  // namespace tabulo::sqlite
