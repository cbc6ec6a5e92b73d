#include "CorvaneSyncClient/platform/system/Paths.h"

#include <algorithm>
#include <vector>

#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

namespace {

// `path` with a leading "~" replaced, where that is a component of its own.
std::string expandingHome(std::string_view path, std::string_view homeDirectory) {
  if (path == "~") return std::string(homeDirectory);
  if (path.starts_with("~/")) return joinedPath(homeDirectory, path.substr(2));
  return std::string(path);
}

void addComponent(std::vector<std::string_view>& components, std::string_view component, bool isAbsolute) {
  if (component.empty() || component == ".") return;
  if (component != "..") {
    components.push_back(component);
  } else if (!components.empty() && components.back() != "..") {
    components.pop_back();
  } else if (!isAbsolute) {
    components.push_back(component);
  }
}

}  // namespace

std::string joinedPath(std::string_view directory, std::string_view name) {
  while (name.starts_with('/')) name.remove_prefix(1);
  if (name.empty()) return std::string(directory);
  if (directory.empty()) return std::string(name);
  while (directory.ends_with('/')) directory.remove_suffix(1);
  std::string path(directory);
  path += '/';
  path += name;
  return path;
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string standardizedPath(std::string_view givenPath, std::string_view homeDirectory) {
  const std::string path = expandingHome(givenPath, homeDirectory);
  if (path.empty()) return path;
  const bool isAbsolute = path.front() == '/';
  std::vector<std::string_view> components;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    addComponent(components, std::string_view(path).substr(start, end - start), isAbsolute);
    start = end + 1;
  }
  std::string result = isAbsolute ? "/" : "";
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (i > 0) result += '/';
    result += components[i];
  }
  return result.empty() ? "." : result;
}

std::string resolvedOneLevel(FileSystem& files, const std::string& path) {
  const std::optional<std::string> destination = files.symbolicLinkDestination(path);
  if (!destination) return path;
  if (destination->starts_with('/')) return *destination;
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? *destination : joinedPath(path.substr(0, slash + 1), *destination);
}

}  // namespace corvane
