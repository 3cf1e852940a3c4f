#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "storage/network_platform.h"

namespace tabulo::internal {

namespace {

constexpr std::uint32_t GFS2_MAGIC = 0x01161970;
constexpr std::array<std::uint32_t, 11> SHARED_FILE_SYSTEMS = {
    NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC, SMB2_SUPER_MAGIC, CIFS_SUPER_MAGIC,  AFS_SUPER_MAGIC, AFS_FS_MAGIC,
    CEPH_SUPER_MAGIC, V9FS_MAGIC,      FUSE_SUPER_MAGIC, OCFS2_SUPER_MAGIC, GFS2_MAGIC};

bool isShared(const struct statfs& status) {
    return std::find(SHARED_FILE_SYSTEMS.begin(), SHARED_FILE_SYSTEMS.end(),
                     static_cast<std::uint32_t>(status.f_type)) != SHARED_FILE_SYSTEMS.end();
}

}  // namespace

bool networkPlatform_isShared(int descriptor) noexcept {
    struct statfs status {};
    return ::fstatfs(descriptor, &status) != 0 || isShared(status);
}

bool networkPlatform_isShared(const char* path) noexcept {
    struct statfs status {};
    return ::statfs(path, &status) != 0 || isShared(status);
}

}  // namespace tabulo::internal
