// serve, where the command was built without cpp-httplib, OpenSSL or SQLite.
#include "tool/serve.h"
#include "tool/status.h"

namespace tabulo::tool {

void runServe(Console&, const ServeOptions&) {
    throw Failure(
        "this tabulo was built without cpp-httplib, OpenSSL or SQLite, which serve needs: install libcpp-httplib-dev, "
        "libssl-dev and libsqlite3-dev, and build it again");
}

}  // namespace tabulo::tool
