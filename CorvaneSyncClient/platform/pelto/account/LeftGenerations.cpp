#include "CorvaneSyncClient/platform/pelto/account/LeftGenerations.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/pelto/chain/History.h"
#include "CorvaneSyncClient/platform/pelto/seal/Passphrase.h"

namespace corvane::pelto {

namespace {

std::vector<PlaceObject> objectsIn(Place& place, const std::string& folder) {
  std::vector<PlaceObject> objects;
  for (const char* const each : {"/c", "/s", "/m"}) {
    const std::vector<PlaceObject> listed = place.list(folder + each);
    objects.insert(objects.end(), listed.begin(), listed.end());
  }
  return objects;
}

}  // namespace

std::vector<std::string> removeLeftBehind(Place& place, const LeftGenerations& left, Date now) {
  std::vector<std::string> emptied;
  if (left.empty()) return emptied;
  const std::vector<PlaceObject> passphrases = place.list(kPassphraseFolder);
  for (const auto& [folder, last] : left) {
    const std::string kept = last.empty() ? std::string() : folder + "/c/" + last;
    const std::vector<PlaceObject> objects = objectsIn(place, folder);
    std::vector<std::string> names = chain::leftBehind(objects, kept, now);
    const std::string prefix = std::string(kPassphraseFolder) + '/' + folder + '-';
    for (const PlaceObject& each : passphrases) {
      if (each.name.starts_with(prefix)) names.push_back(each.name);
    }
    if (!names.empty()) place.remove(names);
    const bool isEmpty = std::all_of(objects.begin(), objects.end(),
                                     [&](const PlaceObject& each) { return each.name == kept; });
    if (isEmpty) emptied.push_back(folder);
  }
  return emptied;
}

}  // namespace corvane::pelto
