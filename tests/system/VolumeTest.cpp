#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/system/files/Volume.h"

namespace corvane {
namespace {

constexpr std::string_view kMountTable =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "30 22 0:40 / /home rw,nosuid shared:5 master:2 - nfs4 server:/home rw,vers=4.2\n"
    "31 30 8:2 / /home/u/local\\040disk rw - xfs /dev/sdb1 rw\n"
    "32 22 0:41 / /mnt/back\\134slash rw - fuse.sshfs host:/ rw\n"
    "33 22 0:42 / /over rw - tmpfs tmpfs rw\n"
    "34 22 0:43 / /over rw - cifs //server/share rw\n"
    "garbage\n"
    "35 22 0:44 / /homework rw propagate_from:3 unbindable - btrfs /dev/sdc rw\n";

TEST(Volume, TheLongestMountPointHoldsAPath) {
  struct Row {
    const char* phrase;
    const char* path;
    const char* mountPoint;
    const char* type;
  };
  const Row rows[] = {
      {"the root holds what nothing else holds", "/etc/passwd", "/", "ext4"},
      {"the root itself", "/", "/", "ext4"},
      {"a mount point itself", "/home", "/home", "nfs4"},
      {"below a mount point", "/home/u/Library/Corvane", "/home", "nfs4"},
      {"octal escapes are resolved: a blank", "/home/u/local disk/x", "/home/u/local disk", "xfs"},
      {"octal escapes are resolved: a backslash", "/mnt/back\\slash/x", "/mnt/back\\slash", "fuse.sshfs"},
      {"a name that begins alike is another", "/homework/x", "/homework", "btrfs"},
      {"and not below it", "/homes/x", "/", "ext4"},
      {"the later of two mounts in one place hides the earlier", "/over/x", "/over", "cifs"},
  };
  for (const Row& row : rows) {
    const std::optional<MountEntry> mount = mountHolding(row.path, kMountTable);
    ASSERT_TRUE(mount) << row.phrase;
    EXPECT_EQ(mount->mountPoint, row.mountPoint) << row.phrase;
    EXPECT_EQ(mount->type, row.type) << row.phrase;
  }
  EXPECT_FALSE(mountHolding("/x", "")) << "no table, no answer";
  EXPECT_FALSE(mountHolding("/x", "22 1 8:1 / /home rw - ext4 d rw")) << "nothing holds the path";
}

TEST(Volume, AMountThatCannotBeSeenIsKnownByTheTypeNumberAlone) {
  struct Row {
    const char* phrase;
    const char* mountTable;
    std::uint32_t magic;
    bool isLocal;
  };
  constexpr const char* kInChroot = "40 22 0:21 / /proc rw - proc proc rw\n";
  const Row rows[] = {
      {"a disk below a chroot's root", kInChroot, 0xEF53, true},
      {"a network file system below a chroot's root", kInChroot, 0x6969, false},
      {"a file system in user space without a name", kInChroot, 0x65735546, false},
      {"a disk where /proc is not mounted", "", 0xEF53, true},
      {"a network file system where /proc is not mounted", "", 0xFF534D42, false},
  };
  for (const Row& row : rows) {
    const FileSystem::Volume volume = volumeHolding("/home/u", row.mountTable, row.magic);
    EXPECT_EQ(volume.mountPoint, "") << row.phrase << ": not the root, which would count as local";
    EXPECT_EQ(volume.isLocal, row.isLocal) << row.phrase;
  }
}

TEST(Volume, AMountThatIsSeenIsKnownByItsNameToo) {
  const auto volume = [](const char* path, std::uint32_t magic) {
    return volumeHolding(path, kMountTable, magic);
  };
  EXPECT_EQ(volume("/home/u/local disk/x", 0x58465342).mountPoint, "/home/u/local disk");
  EXPECT_TRUE(volume("/home/u/local disk/x", 0x58465342).isLocal);
  EXPECT_FALSE(volume("/home/u", 0xEF53).isLocal) << "by its name";
  EXPECT_FALSE(volume("/homework/x", 0x6969).isLocal) << "by its number";
}

TEST(Volume, LinesOfAnotherFormAreNoEntries) {
  for (const char* line : {"", "22", "22 1 8:1 / / rw shared:1", "22 1 8:1 / / rw -",
                           "22 1 8:1 / none rw - ext4 x rw", "22 1 8:1 / / rw - "}) {
    EXPECT_FALSE(parseMountLine(line)) << line;
  }
}

TEST(Volume, WhatIsNoEscapeStays) {
  EXPECT_EQ(parseMountLine("1 1 0:1 / /a\\04 rw - t s o")->mountPoint, "/a\\04");
  EXPECT_EQ(parseMountLine("1 1 0:1 / /a\\x40b rw - t s o")->mountPoint, "/a\\x40b");
  EXPECT_EQ(parseMountLine("1 1 0:1 / /a\\011\\012\\040 rw - t s o")->mountPoint, "/a\t\n ");
}

TEST(Volume, NetworkTypesAreKnownByName) {
  for (const char* type :
       {"nfs", "nfs4", "cifs", "smb3", "smbfs", "afs", "coda", "ncpfs", "ceph", "9p", "lustre", "virtiofs",
        "fuse.sshfs", "fuse.glusterfs", "fuse.ceph-fuse", "fuse.davfs", "fuse"}) {
    EXPECT_TRUE(isNetworkType(type)) << type;
  }
  for (const char* type : {"ext4", "xfs", "btrfs", "tmpfs", "overlay", "zfs", "fuseblk", "fuse.gocryptfs",
                           "fusectl", "ecryptfs", "nfsd"}) {
    EXPECT_FALSE(isNetworkType(type)) << type;
  }
}

TEST(Volume, NetworkTypesAreKnownByNumber) {
  for (const std::uint32_t magic : {0x6969u, 0xFF534D42u, 0xFE534D42u, 0x517Bu, 0x564Cu, 0x5346414Fu,
                                    0x6B414653u, 0x73757245u, 0x00C36400u, 0x01021997u, 0x0BD00BD0u}) {
    EXPECT_TRUE(isNetworkMagic(magic)) << std::hex << magic;
  }
  for (const std::uint32_t magic : {0xEF53u /* ext */, 0x58465342u /* XFS */, 0x01021994u /* tmpfs */,
                                    0x9123683Eu /* btrfs */, 0x65735546u /* FUSE: told by its name */}) {
    EXPECT_FALSE(isNetworkMagic(magic)) << std::hex << magic;
  }
}

}  // namespace
}  // namespace corvane
