// Prints what is stored in some tables, in the order of the uniform ids, while engines write them.
//
//   example_follow <seconds> <table>...      ends when nothing has come for so long
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tabulo/error.h"
#include "tabulo/follower.h"

namespace {

void follow(std::chrono::seconds patience, int count, char** tables) {
    tabulo::Follower follower;
    for (int i = 0; i < count; ++i) {
        follower.add(tables[i]);
    }
    for (;;) {
        const tabulo::FollowEvent event = follower.next(patience);
        switch (event.kind) {
            case tabulo::FollowEventKind::message:
                std::printf("%.*s %d: type %.*s\n", static_cast<int>(event.message->table().size()),
                            event.message->table().data(), event.message->uniformId(),
                            static_cast<int>(event.message->type().size()), event.message->type().data());
                break;
            case tabulo::FollowEventKind::timedOut:
            case tabulo::FollowEventKind::stopped:
                return;
            default:
                std::printf("%s was emptied or replaced.\n", follower.path(event.table).c_str());
        }
        std::fflush(stdout);
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) {
        std::fprintf(stderr, "usage: %s <seconds> <table>...\n", arguments[0]);
        return 2;
    }
    try {
        follow(std::chrono::seconds(std::strtol(arguments[1], nullptr, 10)), count - 2, arguments + 2);
    } catch (const tabulo::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
