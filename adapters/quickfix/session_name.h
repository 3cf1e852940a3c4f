// What the tables of a session are called. C++14, as the engine's side of this adapter.
#pragma once

#include <string>

namespace tabulo {
namespace quickfix {

struct SessionName {
    std::string beginString;
    std::string senderCompId;
    std::string targetCompId;
    std::string qualifier;  // may be empty
};

// The name of the session's message table: "FIX.4.4-CLIENT-EXCHANGE", with "-QUALIFIER" when there is one. Letters,
// digits and '_' stand for themselves, in the first part '.' too unless it begins the name; any other byte is '%' and
// two hexadecimal digits, so that two sessions never share a name and a name never leads to another folder.
std::string tableNameOf(const SessionName& session);
// The name of its session info table: the same with ".session".
std::string sessionTableNameOf(const SessionName& session);
// The session of a message table's name; false for any name that no session's table has.
bool sessionOfTable(const std::string& name, SessionName* session);

}  // namespace quickfix
}  // namespace tabulo
