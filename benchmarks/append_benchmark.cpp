// Appending, store after store, in turn, several times: see append_turn.h; and a hundred encoded frames
// with each call (append_frames.h).
//
//   append_benchmark [--results file] [--directory directory] [--messages n] [--turns n] [--stores name,name]
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

#include "benchmarks/append_frames.h"
#include "benchmarks/append_turn.h"
#include "benchmarks/measure.h"
#include "benchmarks/quiet_turn.h"
#include "benchmarks/workload_check.h"

namespace {

// Writes a file as large as a store gets, and removes it: memory that a virtual machine has not used yet costs whoever
// is the first to use it for the page cache.
void warmUp(std::int32_t messages) {
    {
        std::ofstream file("warm-up", std::ios::binary);
        const std::vector<char> bytes(1024 * std::size_t{1024});
        for (std::int64_t written = 0; written < std::int64_t{messages} * 1024; written += 1024 * 1024) {
            file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        }
    }
    std::filesystem::remove("warm-up");
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tabulo::internal::bench;
    Options options = options_read(argc, argv, "append");
    workload_check();
    options.messages = options.messages == 0 ? 200'500 : options.messages;
    options.turns = options.turns == 0 ? 5 : options.turns;
    result_add("setting", "append", "messages", "messages", options.messages);
    result_add("setting", "append", "turns", "turns", options.turns);
    for (const char* name : missingStores()) {
        result_add("missing", name, "missing", "store", 1);
    }
    warmUp(options.messages);
    for (std::int32_t turn = 0; turn < options.turns; ++turn) {
        for (const Store* store : options.stores) {
            quietTurn_run("append", store->name, [&] { appendTurn_run(*store, "append", "store", options.messages); });
            std::filesystem::remove_all("store");
            if (std::string_view(store->name) == "tabulo") {
                quietTurn_run("append", "tabulo-frames", [&] { appendFrames_run("store", options.messages); });
                std::filesystem::remove_all("store");
            }
        }
    }
    options_finish(options);
    return 0;
}
