// What shipping and receiving tell their user while they run.
#pragma once

#include <functional>
#include <string>

namespace tabulo::shipping {

struct Words {
    std::function<void(const std::string&)> say;  // what happens
    std::function<void(const std::string&)>
        warn;  // what is missing, damaged or left out: the command ends with status 3
};

}  // namespace tabulo::shipping
