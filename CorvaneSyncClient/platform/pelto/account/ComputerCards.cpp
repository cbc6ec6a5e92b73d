#include "CorvaneSyncClient/platform/pelto/account/ComputerCards.h"

#include <algorithm>
#include <cmath>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kMostCardBytes = 4096;
constexpr double kDay = 86'400;

std::string cardFolder(const Sealer& sealer) { return sealer.folder() + "/m"; }

// What all cards of a computer begin with.
std::string cardPrefix(const Sealer& sealer, const String& computer) {
  return cardFolder(sealer) + '/' + hexadecimal(sealer.hash("card " + computer.toString()).substr(0, 16)) +
         '-';
}

std::string cardName(const Sealer& sealer, const RosterEntry& entry) {
  const auto day = static_cast<std::int64_t>(std::max(0.0, std::floor(entry.lastSeen.seconds / kDay)));
  return cardPrefix(sealer, entry.computer) + std::to_string(day);
}

// Takes the card into the roster when it is one, and newer than the one there.
void take(Roster& roster, const Sealer& sealer, const std::string& name, const std::string& bytes) {
  const auto contents = sealer.open(name, bytes, kMostCardBytes);
  if (!contents) return;
  try {
    const Roster card = rosterFrom(readPropertyList(*contents));
    if (card.entries().size() != 1 || cardName(sealer, card.entries()[0]) != name) return;
    const RosterEntry* const before = roster.find(card.entries()[0].computer);
    if (!before || before->lastSeen < card.entries()[0].lastSeen) roster.set(card.entries()[0]);
  } catch (const PlatformException&) {
    // Another version's, or one computer too many.
  }
}

}  // namespace

Roster readCards(Place& place, const Sealer& sealer) {
  std::vector<GetRequest> requests;
  for (const PlaceObject& each : place.list(cardFolder(sealer)))
    requests.push_back({each.name, Writing::alone, {}, kMostCardBytes});
  if (requests.size() > 2 * kMostComputers) requests.resize(2 * kMostComputers);
  const std::vector<GetAnswer> answers = place.get(requests);
  Roster roster;
  for (std::size_t i = 0; i < answers.size(); ++i) take(roster, sealer, requests[i].name, answers[i].bytes);
  return roster;
}

bool hasCard(Place& place, const Sealer& sealer, const String& computer) {
  const std::vector<PlaceObject> there = place.list(cardFolder(sealer));
  const std::string prefix = cardPrefix(sealer, computer);
  return std::any_of(there.begin(), there.end(),
                     [&](const PlaceObject& object) { return object.name.starts_with(prefix); });
}

void putCards(Place& place, const Sealer& sealer, const Roster& cards) {
  const std::vector<PlaceObject> there = place.list(cardFolder(sealer));
  std::vector<NamedBytes> objects;
  std::vector<std::string> earlier;
  for (const RosterEntry& each : cards.entries()) {
    Roster alone;
    alone.set(each);
    const std::string name = cardName(sealer, each), prefix = cardPrefix(sealer, each.computer);
    const auto isName = [&](const PlaceObject& object) { return object.name == name; };
    if (std::none_of(there.begin(), there.end(), isName))
      objects.push_back({name, sealer.seal(name, writeBinaryPropertyList(valueOf(alone)))});
    for (const PlaceObject& object : there) {
      if (object.name.starts_with(prefix) && object.name != name) earlier.push_back(object.name);
    }
  }
  if (!objects.empty()) place.put(objects);
  if (!earlier.empty()) place.remove(earlier);
}

}  // namespace corvane::pelto
