// The verb sql of a build that has no SQLite.
#include "tool/sql.h"

namespace tabulo::tool {

void runSql(Console&, const SqlOptions&) {
    throw Failure(
        "this tabulo was built without SQLite 3.38 or newer, which sql needs: install libsqlite3-dev (and libedit-dev, "
        "for editing what you type) and build it again");
}

}  // namespace tabulo::tool
