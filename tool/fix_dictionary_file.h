// FIX dictionaries in files.
#pragma once

#include <filesystem>

#include "tabulo/fix.h"

namespace tabulo::tool {

// The names in an XML data dictionary as open-source FIX engines use them; what it does not name has the name of the
// built-in list. Failure with the place for a file that cannot be read, is no XML, or is no such dictionary.
FixDictionary readFixDictionary(const std::filesystem::path& path);

}  // namespace tabulo::tool
