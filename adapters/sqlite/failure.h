// Errors of the library as SQLite's.
#pragma once

#include <exception>
#include <new>
#include <string>

#include "adapters/sqlite/connection.h"
#include "adapters/sqlite/sqlite.h"
#include "tabulo/error.h"

namespace tabulo::sqlite {

// SQLite's code for one of the library's: of damage, a file that cannot be opened or read, and so on.
int codeOf(Code code) noexcept;

// Runs an operation of a virtual table; nothing it throws leaves it. *message is the library's words, which SQLite
// frees.
template <typename Operation>
int guarded(char** message, const Operation& operation) noexcept {
    const auto tell = [message](const char* words) {
        sqlite3_free(*message);
        *message = sqlite3_mprintf("%s", words);
    };
    try {
        return operation();
    } catch (const Interrupted&) {
        return SQLITE_INTERRUPT;
    } catch (const Error& error) {
        tell(error.what());
        return codeOf(error.code());
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    } catch (const std::exception& error) {
        tell(error.what());
        return SQLITE_ERROR;
    }
}

}  // namespace tabulo::sqlite
