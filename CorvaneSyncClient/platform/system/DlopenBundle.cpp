#include "CorvaneSyncClient/platform/system/DlopenBundle.h"

#include <dlfcn.h>

#include "CorvaneSyncClient/platform/foundation/PropertyList.h"
#include "CorvaneSyncClient/platform/system/ExportedSymbols.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"

namespace corvane {

namespace {

/// The last component without its extension: "Nuvolo" for "/System/Library/Nuvolo.framework".
std::string bundleName(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.substr(0, name.rfind('.'));
}

/// Reads a table of texts; nothing when there is none or it cannot be read.
std::optional<Dictionary> readStrings(FileSystem& files, const std::string& path) {
  std::string bytes;
  if (files.read(path, bytes)) return std::nullopt;
  try {
    const Value table = readPropertyList(bytes);
    const Dictionary* texts = table.as<Dictionary>();
    return texts ? std::optional(*texts) : std::nullopt;
  } catch (const PropertyListException&) {
    return std::nullopt;  // the keys are texts themselves
  }
}

}  // namespace

std::vector<std::string> DlopenBundle::libraryPaths() const {
  const std::string library = "lib" + bundleName(_path) + ".so";
  return {joinedPath(_path, "Contents/Linux/" + library), joinedPath(_path, library)};
}

std::vector<std::string> DlopenBundle::resourceDirectories() const {
  return {joinedPath(_path, "Contents/Resources"), joinedPath(_path, "Resources")};
}

bool DlopenBundle::load() {
  for (const std::string& path : libraryPaths()) {
    if (_library) break;
    if (!_files.attributesIfKnown(path)) continue;
    _library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!_library) systemLog("Can't open library %@: %@", path, dlerror());
  }
  return _library != nullptr;
}

bool DlopenBundle::hasClass(const std::string& name) {
  if (!_library || name.empty()) return false;
  return exportsSymbol(_library, [&](std::string_view symbol) {
    return symbol.starts_with(name) && (symbol.size() == name.size() || symbol[name.size()] == '_');
  });
}

Bundle::ClassMethod DlopenBundle::classMethod(const std::string& className, const std::string& method) {
  if (!_library) return nullptr;
  return reinterpret_cast<ClassMethod>(dlsym(_library, (className + "_" + method).c_str()));
}

std::optional<std::string> DlopenBundle::resource(const std::string& name, const std::string& type) {
  for (const std::string& directory : resourceDirectories()) {
    const std::string path = joinedPath(directory, name + "." + type);
    const std::optional<FileAttributes> attributes = _files.attributesIfKnown(path);
    if (attributes && attributes->kind == FileKind::regular) return path;
  }
  return std::nullopt;
}

const std::vector<Dictionary>& DlopenBundle::stringsTables(const std::string& table) {
  const auto [place, isNew] = _stringsTables.try_emplace(table);
  if (!isNew) return place->second;
  for (const std::string& language : _languages) {
    for (const std::string& directory : resourceDirectories()) {
      const std::string path = joinedPath(directory, language + ".lproj/" + table + ".strings");
      if (std::optional<Dictionary> texts = readStrings(_files, path))
        place->second.push_back(std::move(*texts));
    }
  }
  return place->second;
}

std::string DlopenBundle::localizedString(const std::string& key, const std::string& table) {
  for (const Dictionary& texts : stringsTables(table)) {
    if (const String text = texts.string(key)) return text.toString();
  }
  return key;
}

}  // namespace corvane
