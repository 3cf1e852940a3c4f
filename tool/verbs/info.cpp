#include "tool/verb.h"

namespace tabulo::tool {

const Verb infoVerb{"info", "Tells what a table says about itself", "",
                    [](CLI::App&) { return std::function<void(Console&)>([](Console&) {}); }};

}  // namespace tabulo::tool
