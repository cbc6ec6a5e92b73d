#include "tools/corvane-hub/ObjectNames.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"

namespace corvane::hubserver {

namespace {

constexpr std::size_t kLongestPrincipal = 40;
constexpr std::size_t kLongestSegment = 100;
constexpr std::size_t kLongestName =
    250;  // a folder's directory is one file name, which has 255 bytes at most

bool isNameCharacter(char c) { return (c >= 'a' && c <= 'z') || isAsciiDigit(c) || c == '-'; }

bool isSegment(std::string_view text, std::size_t longest) {
  return !text.empty() && text.size() <= longest && std::all_of(text.begin(), text.end(), isNameCharacter);
}

}  // namespace

bool isPrincipalName(std::string_view name) { return isSegment(name, kLongestPrincipal) && name[0] != '-'; }

std::optional<ObjectPath> objectPathOf(std::string_view name) {
  const std::size_t slash = name.rfind('/');
  if (slash == std::string_view::npos || name.size() > kLongestName) return {};
  const std::string_view file = name.substr(slash + 1);
  std::optional<std::string> directory = folderDirectoryOf(name.substr(0, slash));
  if (!directory || !isSegment(file, kLongestSegment)) return {};
  return ObjectPath{std::move(*directory), std::string(file)};
}

std::optional<std::string> folderDirectoryOf(std::string_view folder) {
  if (folder.size() > kLongestName) return {};
  std::string_view rest = folder;
  while (true) {
    const std::size_t slash = rest.find('/');
    if (!isSegment(rest.substr(0, slash), kLongestSegment)) return {};
    if (slash == std::string_view::npos) break;
    rest.remove_prefix(slash + 1);
  }
  std::string directory(folder);
  std::replace(directory.begin(), directory.end(), '/', '.');
  return directory;
}

std::string folderOf(std::string_view directory) {
  std::string folder(directory);
  std::replace(folder.begin(), folder.end(), '.', '/');
  return folder;
}

}  // namespace corvane::hubserver
