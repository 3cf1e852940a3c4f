// What the command tells about itself, all from the declarations of its verbs.
#pragma once

#include <string>

#include "tool/command_line.h"

namespace tabulo::tool {

// The manual page tabulo(1), for man.
std::string manualPage(const CommandLine& line);

// What a shell reads to complete the command's verbs, options and values: "bash", "zsh" or "fish".
std::string completionScript(const CommandLine& line, const std::string& shell);

}  // namespace tabulo::tool
