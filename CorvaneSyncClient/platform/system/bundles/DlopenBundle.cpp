#include "CorvaneSyncClient/platform/system/bundles/DlopenBundle.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdint>
#include <functional>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"

namespace corvane {

namespace {

// The last component without its extension: "Nuvolo" for "/System/Library/Nuvolo.framework".
std::string bundleName(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.substr(0, name.rfind('.'));
}

// Reads a table of texts; nothing when there is none or it cannot be read.
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

// The parts of a loaded library's dynamic section that lead to its symbols.
struct SymbolTable {
  const ElfW(Sym) * symbols = nullptr;
  const char* names = nullptr;
  const std::uint32_t* hash = nullptr;
};

SymbolTable symbolTableOf(const link_map& library) {
  SymbolTable table;
  for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
    // The loader leaves addresses relative to the library's start where the section is read-only.
    ElfW(Addr) address = entry->d_un.d_ptr;
    if (address < library.l_addr) address += library.l_addr;
    if (entry->d_tag == DT_SYMTAB) table.symbols = reinterpret_cast<const ElfW(Sym)*>(address);
    if (entry->d_tag == DT_STRTAB) table.names = reinterpret_cast<const char*>(address);
    if (entry->d_tag == DT_GNU_HASH) table.hash = reinterpret_cast<const std::uint32_t*>(address);
  }
  return table;
}

// A GNU hash table: counts of buckets, of leading symbols outside the table, and of filter words, a shift;
// the filter words; the buckets, each the number of its chain's first symbol or 0; the chains, one word a
// symbol, in which the lowest bit marks a chain's end. Exported symbols are exactly those in the chains.
template <typename Visit>
bool anyHashedSymbol(const std::uint32_t* hash, Visit visit) {
  const std::uint32_t bucketCount = hash[0];
  const std::uint32_t firstHashed = hash[1];
  const auto* filter = reinterpret_cast<const ElfW(Addr)*>(hash + 4);
  const auto* buckets = reinterpret_cast<const std::uint32_t*>(filter + hash[2]);
  const std::uint32_t* chains = buckets + bucketCount;
  for (std::uint32_t bucket = 0; bucket < bucketCount; ++bucket) {
    std::uint32_t symbol = buckets[bucket];
    if (symbol == 0) continue;
    do {
      if (visit(symbol)) return true;
    } while ((chains[symbol++ - firstHashed] & 1) == 0);
  }
  return false;
}

// Whether a shared library opened with dlopen exports a symbol of its own for which `matches` says yes.
// Reads the library's dynamic symbol table in memory; false for a library without a GNU hash table.
bool exportsSymbol(void* library, const std::function<bool(std::string_view)>& matches) {
  link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || !map) return false;
  const SymbolTable table = symbolTableOf(*map);
  if (!table.symbols || !table.names || !table.hash) return false;
  return anyHashedSymbol(table.hash, [&](std::uint32_t index) {
    const ElfW(Sym)& symbol = table.symbols[index];
    return symbol.st_shndx != SHN_UNDEF && matches(table.names + symbol.st_name);
  });
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

std::optional<StringsTable> DlopenBundle::readTable(const std::string& language, const std::string& table) {
  for (const std::string& directory : resourceDirectories()) {
    const std::string path = joinedPath(directory, language + ".lproj/" + table + ".strings");
    if (std::optional<Dictionary> texts = readStrings(_files, path)) {
      return StringsTable{language, std::move(*texts)};
    }
  }
  return std::nullopt;
}

std::optional<StringsTable> DlopenBundle::readTranslations(const std::string& table) {
  for (const std::string& language : _languages) {
    if (language.substr(0, language.find_first_of("_-")) == "en") break;
    if (std::optional<StringsTable> found = readTable(language, table)) return found;
  }
  return std::nullopt;
}

const StringsTable* DlopenBundle::translations(const std::string& table) {
  auto found = _translations.find(table);
  if (found == _translations.end()) found = _translations.emplace(table, readTranslations(table)).first;
  return found->second ? &*found->second : nullptr;
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
