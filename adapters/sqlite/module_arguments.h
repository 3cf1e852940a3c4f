// The arguments of CREATE VIRTUAL TABLE, which SQLite hands over as they were written.
#pragma once

#include <string>

namespace tabulo::sqlite {

struct ModuleArgument {
    std::string name;   // of "name = value"; empty for a value alone
    std::string value;  // without its quotes
};
ModuleArgument moduleArgument(const char* text);

}  // namespace tabulo::sqlite
