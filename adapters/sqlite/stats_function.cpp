// tabulo_stats(): what the connection's statements have read so far, as JSON.
#include "adapters/sqlite/modules.h"

namespace tabulo::sqlite {

namespace {

using Shared = std::shared_ptr<Connection>;

void giveStats(sqlite3_context* context, int, sqlite3_value**) {
    const WorkCounts& counts = (*static_cast<Shared*>(sqlite3_user_data(context)))->counts;
    char* text = sqlite3_mprintf(
        R"({"blocksRead":%lld,"blocksSkipped":%lld,"messagesRead":%lld})", static_cast<long long>(counts.blocksRead),
        static_cast<long long>(counts.blocksSkipped), static_cast<long long>(counts.messagesRead));
    sqlite3_result_text(context, text, -1, sqlite3_free);
}

}  // namespace

int addStatsFunction(const Shared& connection) {
    return sqlite3_create_function_v2(connection->database(), "tabulo_stats", 0, SQLITE_UTF8 | SQLITE_INNOCUOUS,
                                      new Shared(connection), giveStats, nullptr, nullptr,
                                      [](void* owner) { delete static_cast<Shared*>(owner); });
}

}  // namespace tabulo::sqlite
