#include "CorvaneSyncClient/platform/pelto/account/MembershipFile.h"

#include <algorithm>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/chain/Link.h"

namespace corvane::pelto {

namespace {

constexpr std::string_view kHead = "corvane account 2";
constexpr std::size_t kKeysEnd = kHead.size() + AccountKey::kBytes + ComputerKeys::kKeyBytes;

constexpr const char* kPlace = "Place";
constexpr const char* kUser = "User";
constexpr const char* kSecret = "Secret";
constexpr const char* kAccount = "Account";
constexpr const char* kGeneration = "Generation";
constexpr const char* kComputer = "Computer";
constexpr const char* kName = "Name";
constexpr const char* kEnabled = "Enabled";
constexpr const char* kCarded = "Carded";
constexpr const char* kLeft = "Left";
constexpr const char* kNewestNumber = "NewestNumber";
constexpr const char* kNewestHash = "NewestHash";

std::int64_t numberIn(const Dictionary& entries, const char* key) {
  const Value* const value = entries.find(key);
  const auto* const number = value ? value->as<std::int64_t>() : nullptr;
  return number ? *number : -1;
}

// Absent for another number of bytes than none or all.
std::optional<CommitMark> newestIn(const Dictionary& entries) {
  const Value* const value = entries.find(kNewestHash);
  const Data* const hash = value ? value->as<Data>() : nullptr;
  CommitMark newest{numberIn(entries, kNewestNumber), hash ? std::string(hash->bytes()) : std::string()};
  const std::size_t wanted = newest.number > 0 ? CommitMark::kHashBytes : 0;
  if (newest.number < 0 || newest.hash.size() != wanted) return std::nullopt;
  return newest;
}

// By folder the name of the last commit. Absent when an entry names what is not of that form: all in these
// folders is removed one day.
std::optional<LeftGenerations> leftIn(const Dictionary& entries) {
  LeftGenerations left;
  const Dictionary* const kept = entries.dictionary(kLeft);
  if (!kept) return left;
  for (const auto& [key, value] : *kept) {
    const std::string folder = key.toString(), last = value.string().toString();
    const bool isFolder = folder.size() == 32 && folder.find_first_not_of("0123456789abcdef") == folder.npos;
    if (!isFolder || !value.string() || (!last.empty() && !chain::slotNamed(last))) return std::nullopt;
    left[folder] = last;
  }
  return left;
}

std::optional<Account> accountIn(const Dictionary& entries, std::string_view key,
                                 std::string_view secretKey) {
  const String place = entries.string(kPlace), account = entries.string(kAccount),
               computer = entries.string(kComputer), name = entries.string(kName);
  const Array* const enabled = entries.array(kEnabled);
  const std::int64_t generation = numberIn(entries, kGeneration);
  const auto newest = newestIn(entries);
  const auto left = leftIn(entries);
  if (place.empty() || !entries.string(kUser) || !entries.string(kSecret) || name.empty() ||
      !uuidBytes(account.view()) || !uuidBytes(computer.view()) || !enabled || generation < 1 || !newest ||
      !left) {
    return std::nullopt;
  }
  Membership membership{{entries.string(kUser).toString(), entries.string(kSecret).toString()},
                        account.toString(),
                        generation,
                        std::make_shared<AccountKey>(key),
                        std::make_shared<ComputerKeys>(secretKey),
                        name.toString(),
                        {},
                        *newest,
                        entries.date(kCarded).value_or(Date{}),
                        *left};
  for (const Value& each : *enabled) membership.enabled.insert(each.string().toString());
  return Account{place.toString(), computer, {}, std::move(membership)};
}

}  // namespace

bool isMembershipFile(std::string_view bytes) { return bytes.starts_with(kHead); }

std::optional<Account> accountInMembershipFile(std::string_view bytes) {
  if (!isMembershipFile(bytes) || bytes.size() < kKeysEnd) return std::nullopt;
  Value value;
  try {
    value = readPropertyList(bytes.substr(kKeysEnd));
  } catch (const PropertyListException&) {
    return std::nullopt;
  }
  const Dictionary* const entries = value.as<Dictionary>();
  if (!entries) return std::nullopt;
  return accountIn(*entries, bytes.substr(kHead.size(), AccountKey::kBytes),
                   bytes.substr(kHead.size() + AccountKey::kBytes, ComputerKeys::kKeyBytes));
}

SecretBytes membershipFileOf(const Account& account) {
  const Membership& membership = *account.membership;
  Array enabled;
  for (const std::string& each : membership.enabled) enabled.append(each);
  Dictionary left;
  for (const auto& [folder, last] : membership.left) left.set(folder, last);
  const std::string entries =
      writeBinaryPropertyList(Dictionary{{kPlace, account.url},
                                         {kUser, membership.credentials.user},
                                         {kSecret, membership.credentials.secret},
                                         {kAccount, membership.account},
                                         {kGeneration, membership.generation},
                                         {kComputer, account.computer},
                                         {kName, membership.name},
                                         {kEnabled, enabled},
                                         {kCarded, membership.carded},
                                         {kLeft, left},
                                         {kNewestNumber, membership.newest.number},
                                         {kNewestHash, Data(membership.newest.hash)}});
  SecretBytes bytes(kKeysEnd + entries.size());
  unsigned char* at = bytes.data();
  for (const std::string_view each :
       {kHead, membership.key->bytes(), membership.keys->secretKey(), std::string_view(entries)}) {
    at = std::copy(each.begin(), each.end(), at);
  }
  return bytes;
}

}  // namespace corvane::pelto
