// The verbs ship, receive and lag of a build that has no libnats.
#include "tool/shipping.h"

namespace tabulo::tool {

namespace {

[[noreturn]] void refuse(const char* verb) {
    throw Failure(std::string("this tabulo was built without libnats, which ") + verb +
                  " needs: install libnats-dev and build it again");
}

}  // namespace

void runShip(Console&, const ShipVerbOptions&) {
    refuse("ship");
}

void runReceive(Console&, const ReceiveVerbOptions&) {
    refuse("receive");
}

void runLag(Console&, const LagVerbOptions&) {
    refuse("lag");
}

}  // namespace tabulo::tool
