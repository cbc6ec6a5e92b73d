#include "CorvaneSyncClient/platform/pelto/place/PlaceNames.h"

#include <algorithm>
#include <string>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kLongestPart = 100;

bool isNameCharacter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') || character == '-';
}

}  // namespace

bool isPlaceNamePart(std::string_view part) {
  return !part.empty() && part.size() <= kLongestPart &&
         std::all_of(part.begin(), part.end(), &isNameCharacter);
}

bool isPlaceFolder(std::string_view name) {
  while (true) {
    const std::size_t slash = name.find('/');
    if (!isPlaceNamePart(name.substr(0, slash))) return false;
    if (slash == std::string_view::npos) return true;
    name.remove_prefix(slash + 1);
  }
}

bool isPlaceName(std::string_view name) {
  return name.find('/') != std::string_view::npos && isPlaceFolder(name);
}

void requirePlaceFolder(std::string_view name) {
  if (!isPlaceFolder(name))
    throw PlatformException(NSInvalidArgumentException, "no folder of a place: " + std::string(name));
}

void requirePlaceName(std::string_view name) {
  if (!isPlaceName(name))
    throw PlatformException(NSInvalidArgumentException, "no name of an object: " + std::string(name));
}

std::string_view folderOf(std::string_view name) { return name.substr(0, name.rfind('/')); }

}  // namespace corvane::pelto
