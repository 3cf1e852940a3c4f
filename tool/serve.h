// The verb serve: tables as a page. A build without cpp-httplib or SQLite has another source behind this header, which
// tells what is missing.
#pragma once

#include <string>
#include <vector>

#include "tool/console.h"

namespace tabulo::tool {

struct ServeOptions {
    std::vector<std::string> folders;
    std::string listen = "127.0.0.1:8080";
    std::vector<std::string> hosts;
    std::string certificate;
    std::string key;
    bool insecure = false;
};

// Serves until the user interrupts. UsageError for an address that cannot be, and for one that others can reach without
// TLS; Failure for folders that cannot be read and an address that cannot be taken.
void runServe(Console& console, const ServeOptions& options);

}  // namespace tabulo::tool
