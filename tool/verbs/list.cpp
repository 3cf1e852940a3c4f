#include "tool/verb.h"

namespace tabulo::tool {

const Verb listVerb{"ls", "Lists tables", "", [](CLI::App&) { return std::function<void(Console&)>([](Console&) {}); }};

}  // namespace tabulo::tool
