// What all stores of a process share: uniform ids, and when writes are committed.
#pragma once

#include <cstdint>
#include <filesystem>

#include "adapters/quickfix/store_settings.h"

namespace tabulo::quickfix {

// Raises the next uniform id above that of every message table in a folder. Files that are no tables are passed over.
// The errors of a folder that cannot be read.
void startUniformIdsAbove(const std::filesystem::path& folder);
// The next one, for any thread. StoreFailure when there is none left.
std::int32_t nextUniformId();

// StoreFailure when another session of this process asks for something else.
void shareSync(const SyncSetting& sync);

}  // namespace tabulo::quickfix
