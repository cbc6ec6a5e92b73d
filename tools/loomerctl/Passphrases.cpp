#include "tools/loomerctl/Passphrases.h"

#include <algorithm>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/Passphrase.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"

namespace corvane::loomerctl {

namespace {

using pelto::Account;
using pelto::Invitation;

constexpr std::size_t kPassphraseObjectBytes = 1024;
constexpr std::size_t kMostTried = 20;

pelto::Sealer sealerOf(const Account& account) {
  const pelto::Membership& membership = account.membership;
  return {*membership.key, membership.account, membership.generation};
}

// What the names of an account's objects begin with.
std::string prefixOf(const pelto::Sealer& sealer) {
  return std::string(pelto::kPassphraseFolder) + '/' + sealer.folder() + '-';
}

std::vector<std::string> objectsOf(pelto::Place& place, const pelto::Sealer& sealer) {
  std::vector<std::string> names;
  for (const pelto::PlaceObject& each : place.list(pelto::kPassphraseFolder)) {
    if (each.name.starts_with(prefixOf(sealer))) names.push_back(each.name);
  }
  return names;
}

}  // namespace

std::optional<Invitation> invitationUnder(pelto::Place& place, const std::string& passphrase) {
  std::vector<pelto::PlaceObject> objects = place.list(pelto::kPassphraseFolder);
  std::erase_if(objects, [](const pelto::PlaceObject& each) {
    return each.bytes != 0 && each.bytes != kPassphraseObjectBytes;
  });
  std::stable_sort(objects.begin(), objects.end(),
                   [](const auto& a, const auto& b) { return b.date < a.date; });
  if (objects.size() > kMostTried) objects.resize(kMostTried);
  for (const pelto::PlaceObject& each : objects) {
    const pelto::GetRequest request{each.name, pelto::Writing::alone, {}, kPassphraseObjectBytes};
    const pelto::GetAnswer answer = place.get({request}).front();
    if (auto invitation = pelto::openWithPassphrase(answer.bytes, passphrase)) return invitation;
  }
  return std::nullopt;
}

void putUnderPassphrase(pelto::Place& place, const Account& account, const Invitation& invitation,
                        const std::string& passphrase) {
  const std::string object = pelto::sealUnderPassphrase(invitation, passphrase);
  const pelto::Sealer sealer = sealerOf(account);
  const std::vector<std::string> earlier = objectsOf(place, sealer);
  place.put({{prefixOf(sealer) + pelto::hexadecimal(sealer.hash(object)), object}});
  place.remove(earlier);
}

bool removePassphrase(pelto::Place& place, const Account& account) {
  const std::vector<std::string> objects = objectsOf(place, sealerOf(account));
  if (!objects.empty()) place.remove(objects);
  return !objects.empty();
}

}  // namespace corvane::loomerctl
