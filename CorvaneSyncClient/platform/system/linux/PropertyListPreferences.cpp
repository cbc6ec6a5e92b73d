#include "CorvaneSyncClient/platform/system/linux/PropertyListPreferences.h"

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

namespace corvane {

std::optional<Value> PropertyListPreferences::value(const std::string& domain, const std::string& key) {
  try {
    const std::string directory = joinedPath(_process.homeDirectory(), "Library/Preferences");
    std::string bytes;
    if (_files.read(joinedPath(directory, domain + ".plist"), bytes)) return std::nullopt;
    const Value preferences = readPropertyList(bytes);
    const Dictionary* dictionary = preferences.as<Dictionary>();
    const Value* found = dictionary ? dictionary->find(std::string_view(key)) : nullptr;
    return found ? std::optional<Value>(*found) : std::nullopt;
  } catch (const PlatformException&) {
    return std::nullopt;  // a bad property list, or a user without a home: as if there were no such file
  }
}

bool PropertyListPreferences::booleanUserDefault(const std::string& key) {
  for (const char* domain : kUserDefaultsDomains) {
    if (const std::optional<Value> found = value(domain, key)) return readsAsTrue(*found);
  }
  return false;
}

}  // namespace corvane
