// Layouts, from the outside and in files.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "messagetable/table_header.h"
#include "storage/table_config.h"
#include "tabulo/table_info.h"

namespace tabulo::api {

// The layout's numbers as the format counts them. Throws for a layout that no table can have: wrongParameter,
// stringFieldsLimit, numericFieldsLimit.
internal::MessageTableLayout layout_numbers(const Layout& layout);

// The number of the field with this name. Throws wrongParameter for a name that none has, or more than one.
std::size_t layout_textNamed(const Layout& layout, std::string_view name);
std::size_t layout_numberNamed(const Layout& layout, std::string_view name);

// The layout that a stored section describes.
Layout layout_ofHeader(const internal::MessageTableHeader& header);

// What a message table at `path` is created from. Throws as layout_numbers, also for a name with a zero byte.
internal::TableConfigPtr layout_configure(const Layout& layout, const std::string& path,
                                          internal::FilePresence presence);
// The same of a table whose layout was read from its file.
internal::TableConfigPtr layout_configureAsStored(const Layout& layout, const std::string& path);

// A configuration without layout for a table at `path`. Throws for want of memory.
internal::TableConfigPtr config_create(const std::string& path, internal::FilePresence presence);

}  // namespace tabulo::api
