#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

/// One line of the kernel's mount table.
struct MountEntry {
  std::string mountPoint;
  std::string type;  ///< "ext4", "nfs4", "fuse.sshfs", …
};

/// Reads a line of /proc/self/mountinfo, octal escapes resolved; nothing for a line of another form.
std::optional<MountEntry> parseMountLine(std::string_view line);

/// The entry of the mount that holds `path` (absolute, without links): the longest mount point that leads to
/// it, and of equal ones the last, which hides those before it.
std::optional<MountEntry> mountHolding(std::string_view path, std::string_view mountTable);

/// Whether a file system's type name is that of a network or host-shared one. A file system in user space
/// (FUSE) is taken for one unless its name is that of a known local one: a foreign disk mistaken for a local
/// one could cost somebody's lock, the other mistake costs nothing.
bool isNetworkType(std::string_view type);

/// Whether the type number that statfs(2) answers is that of a network or host-shared file system.
bool isNetworkMagic(std::uint32_t magic);

/// The volume of `path` (absolute, without links), by the mount table and the type number of its file system.
FileSystem::Volume volumeHolding(std::string_view path, std::string_view mountTable, std::uint32_t magic);

/// As `FileSystem::volume`.
std::optional<FileSystem::Volume> volumeOf(const std::string& path);

}  // namespace corvane
