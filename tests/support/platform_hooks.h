// A platform whose every file operation is a static function of a class of the test's.
#pragma once

#include "storage/file_platform.h"

namespace tabulo::internal::test {

template <typename Hooks>
void setFileOperations(FilePlatform* platform) {
    platform->open = Hooks::open;
    platform->lock = Hooks::lock;
    platform->unlock = Hooks::unlock;
    platform->readAt = Hooks::readAt;
    platform->writeAt = Hooks::writeAt;
    platform->sync = Hooks::sync;
    platform->syncDirectory = Hooks::syncDirectory;
    platform->truncate = Hooks::truncate;
    platform->size = Hooks::size;
    platform->close = Hooks::close;
    platform->remove = Hooks::remove;
    platform->now = Hooks::now;
}

}  // namespace tabulo::internal::test
