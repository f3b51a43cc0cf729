// POSIX backend: the name of the file system that holds a path, from statfs's
// type number. The filter asks for it; only Windows acts on the answer.
#include "platform/platform.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstdint>
#include <iterator>
#include <string>

namespace {

struct KnownType {
    uint32_t magic;
    const char *name;
};

// The file systems met in practice; every other type is "unknown". ext2,
// ext3 and ext4 share one number. The numbers that older kernel headers lack
// are written out.
constexpr KnownType kKnownTypes[] = {
    {EXT4_SUPER_MAGIC, "ext4"},   {TMPFS_MAGIC, "tmpfs"},       {XFS_SUPER_MAGIC, "xfs"},
    {BTRFS_SUPER_MAGIC, "btrfs"}, {NFS_SUPER_MAGIC, "nfs"},     {PROC_SUPER_MAGIC, "proc"},
    {SYSFS_MAGIC, "sysfs"},       {OVERLAYFS_SUPER_MAGIC, "overlay"}, {MSDOS_SUPER_MAGIC, "vfat"},
    {0x5346544e, "ntfs"},         {0x65735546, "fuse"},         {0x01021997, "9p"},
    {0xFF534D42, "cifs"},         {0x2011BAB0, "exfat"},
};

}  // namespace

int32_t plat_fs_volume_name(const char *path, std::string *name) {
    if (path == nullptr || name == nullptr) {
        return EINVAL;
    }
    struct statfs info {};
    if (::statfs(path, &info) != 0) {
        return errno;
    }
    // The numbers are 32 bits wide; f_type is a signed word on some systems.
    auto magic = static_cast<uint32_t>(info.f_type);
    for (const KnownType &type : kKnownTypes) {
        if (type.magic == magic) {
            *name = type.name;
            return 0;
        }
    }
    *name = "unknown";
    return 0;
}

bool plat_fs_has_system_dir_rules() { return false; }
