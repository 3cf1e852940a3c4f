#include "adapters/sqlite/failure.h"

namespace tabulo::sqlite {

int codeOf(Code code) noexcept {
    switch (code) {
        case Code::outOfMemory:
            return SQLITE_NOMEM;
        case Code::fileOpen:
            return SQLITE_CANTOPEN;
        case Code::fileRead:
        case Code::fileSeek:
        case Code::systemFile:
            return SQLITE_IOERR;
        case Code::signature:
        case Code::byteOrder:
        case Code::version:
        case Code::tableType:
            return SQLITE_NOTADB;
        case Code::consistency:
        case Code::headerCorrupted:
        case Code::noData:
            return SQLITE_CORRUPT_VTAB;
        case Code::tableClosed:
            return SQLITE_ABORT;
        default:
            return SQLITE_ERROR;
    }
}

}  // namespace tabulo::sqlite
