#include "CorvaneSyncClient/platform/system/files/Volume.h"

#include <sys/vfs.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane {

namespace {

constexpr std::string_view kNetworkTypes[] = {
    "9p",    "acfs",   "afs",  "beegfs", "ceph",  "cifs",   "coda",     "gfs",      "gfs2",
    "gpfs",  "lustre", "ncp",  "ncpfs",  "nfs",   "nfs4",   "ocfs2",    "orangefs", "panfs",
    "pvfs2", "smb",    "smb2", "smb3",   "smbfs", "vboxsf", "virtiofs", "vmhgfs",
};
constexpr std::string_view kLocalUserSpaceTypes[] = {
    "fuse.bindfs",   "fuse.encfs",   "fuse.exfat",    "fuse.fuse-overlayfs", "fuse.gocryptfs", "fuse.lxcfs",
    "fuse.mergerfs", "fuse.ntfs-3g", "fuse.securefs", "fuse.unionfs",        "fuse.veracrypt", "fuseblk",
};

// From linux/magic.h and, where that has none, from the file systems themselves.
constexpr std::uint32_t kNetworkMagics[] = {
    0x00006969,  // NFS
    0x0000517B,  // SMB
    0xFF534D42,  // CIFS
    0xFE534D42,  // SMB2
    0x0000564C,  // NCP
    0x5346414F,  // AFS, the one of OpenAFS
    0x6B414653,  // AFS, the kernel's
    0x73757245,  // CODA
    0x00C36400,  // Ceph
    0x01021997,  // 9P
    0x0BD00BD0,  // Lustre
    0x01161970,  // GFS2
    0x7461636F,  // OCFS2
    0x47504653,  // GPFS
    0x20030528,  // OrangeFS
    0xAAD7AAEA,  // PanFS
    0x19830326,  // BeeGFS
    0x786F4256,  // VirtualBox shared folders
    0xBACBACBC,  // VMware shared folders
};
constexpr std::uint32_t kUserSpaceMagic = 0x65735546;

// The type of a file system whose mount cannot be seen. All those in user space share one number.
std::string_view typeOfMagic(std::uint32_t magic) { return magic == kUserSpaceMagic ? "fuse" : ""; }

// Nothing where /proc is not mounted.
std::string readMountTable() {
  std::ifstream file("/proc/self/mountinfo", std::ios::binary);
  std::ostringstream table;
  table << file.rdbuf();
  return table.str();
}

// The kernel writes blanks, tabs, line feeds and backslashes in paths as "\ooo".
std::string withoutOctalEscapes(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && isOctalDigit(text[i + 1]) && isOctalDigit(text[i + 2]) &&
        isOctalDigit(text[i + 3])) {
      result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

// Takes the text up to the next blank off the front.
std::string_view takeField(std::string_view& line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

bool leadsTo(std::string_view mountPoint, std::string_view path) {
  if (mountPoint == "/") return path.starts_with('/');
  return path.starts_with(mountPoint) && (path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
}

}  // namespace

std::optional<MountEntry> parseMountLine(std::string_view line) {
  // ID, parent ID, device, root, mount point, options, optional fields …, "-", type, source, options
  // (proc(5)).
  for (int skipped = 0; skipped < 4; ++skipped) takeField(line);
  const std::string_view mountPoint = takeField(line);
  takeField(line);
  while (!line.empty()) {
    if (takeField(line) != "-") continue;
    const std::string_view type = takeField(line);
    if (!mountPoint.starts_with('/') || type.empty()) return std::nullopt;
    return MountEntry{withoutOctalEscapes(mountPoint), withoutOctalEscapes(type)};
  }
  return std::nullopt;
}

std::optional<MountEntry> mountHolding(std::string_view path, std::string_view mountTable) {
  std::optional<MountEntry> holder;
  while (!mountTable.empty()) {
    const std::size_t end = std::min(mountTable.find('\n'), mountTable.size());
    std::optional<MountEntry> entry = parseMountLine(mountTable.substr(0, end));
    mountTable.remove_prefix(std::min(end + 1, mountTable.size()));
    if (!entry || !leadsTo(entry->mountPoint, path)) continue;
    if (!holder || entry->mountPoint.size() >= holder->mountPoint.size()) holder = std::move(entry);
  }
  return holder;
}

bool isNetworkType(std::string_view type) {
  if (std::find(std::begin(kNetworkTypes), std::end(kNetworkTypes), type) != std::end(kNetworkTypes))
    return true;
  if (!type.starts_with("fuse") || type == "fusectl") return false;
  return std::find(std::begin(kLocalUserSpaceTypes), std::end(kLocalUserSpaceTypes), type) ==
         std::end(kLocalUserSpaceTypes);
}

bool isNetworkMagic(std::uint32_t magic) {
  return std::find(std::begin(kNetworkMagics), std::end(kNetworkMagics), magic) != std::end(kNetworkMagics);
}

FileSystem::Volume volumeHolding(std::string_view path, std::string_view mountTable, std::uint32_t magic) {
  const std::optional<MountEntry> mount = mountHolding(path, mountTable);
  const bool isNetwork = isNetworkMagic(magic) || isNetworkType(mount ? mount->type : typeOfMagic(magic));
  return {mount ? mount->mountPoint : "", !isNetwork};
}

std::optional<FileSystem::Volume> volumeOf(const std::string& path) {
  struct statfs status {};
  if (retryingInterrupted([&] { return ::statfs(path.c_str(), &status); }) != 0) return std::nullopt;
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), &std::free);
  if (!real) return std::nullopt;
  return volumeHolding(real.get(), readMountTable(), static_cast<std::uint32_t>(status.f_type));
}

}  // namespace corvane
