#include "CorvaneSyncClient/platform/pelto/account/MembershipFile.h"

#include <algorithm>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/chain/Link.h"

namespace corvane::pelto {

namespace {

constexpr std::string_view kHead = "corvane account 3";
// Of a file whose secret stands among the entries.
constexpr std::string_view kFormerHead = "corvane account 2";
constexpr std::size_t kKeysEnd = kHead.size() + AccountKey::kBytes + ComputerKeys::kKeyBytes;
constexpr std::size_t kLengthBytes = 2;  // of the secret's length

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
constexpr const char* kFormer = "Former";
constexpr const char* kKey = "Key";
constexpr const char* kChange = "Change";
constexpr const char* kLast = "Last";
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

// Raises SealedFormException for a change that is none.
std::optional<FormerGeneration> formerGenerationIn(const Value& value) {
  const auto* const entries = value.as<Dictionary>();
  const Value* const box = entries ? entries->find(kKey) : nullptr;
  const Data* const bytes = box ? box->as<Data>() : nullptr;
  const Value* const change = entries ? entries->find(kChange) : nullptr;
  if (!bytes || bytes->bytes().size() != kKeyBoxBytes || !change) return std::nullopt;
  FormerGeneration former{numberIn(*entries, kGeneration), std::string(bytes->bytes()),
                          generationChangeFrom(*change), entries->string(kLast).toString()};
  if (former.generation < 1 || !chain::slotNamed(former.last)) return std::nullopt;
  return former;
}

// Absent when one of them is not of its form.
std::optional<std::vector<FormerGeneration>> formerIn(const Dictionary& entries) {
  std::vector<FormerGeneration> former;
  const Array* const kept = entries.array(kFormer);
  if (!kept) return former;
  try {
    for (const Value& each : *kept) {
      auto one = formerGenerationIn(each);
      if (!one || (!former.empty() && former.back().generation >= one->generation)) return std::nullopt;
      former.push_back(*std::move(one));
    }
  } catch (const SealedFormException&) {
    return std::nullopt;
  }
  return former;
}

Array arrayOf(const std::vector<FormerGeneration>& former) {
  Array all;
  for (const FormerGeneration& each : former) {
    all.append(Dictionary{{kGeneration, each.generation},
                          {kKey, Data(each.keyBox)},
                          {kChange, valueOf(each.change)},
                          {kLast, each.last}});
  }
  return all;
}

std::optional<Account> accountIn(const Dictionary& entries, std::string_view key, std::string_view secretKey,
                                 std::string_view secret) {
  const String place = entries.string(kPlace), account = entries.string(kAccount),
               computer = entries.string(kComputer), name = entries.string(kName);
  const Array* const enabled = entries.array(kEnabled);
  const std::int64_t generation = numberIn(entries, kGeneration);
  const auto newest = newestIn(entries);
  const auto left = leftIn(entries);
  auto former = formerIn(entries);
  if (place.empty() || !entries.string(kUser) || name.empty() || !uuidBytes(account.view()) ||
      !uuidBytes(computer.view()) || !enabled || generation < 1 || !newest || !left || !former) {
    return std::nullopt;
  }
  Membership membership{{entries.string(kUser).toString(), SharedSecret(secret)},
                        account.toString(),
                        generation,
                        std::make_shared<AccountKey>(key),
                        std::make_shared<ComputerKeys>(secretKey),
                        name.toString(),
                        {},
                        *newest,
                        entries.date(kCarded).value_or(Date{}),
                        *left,
                        *std::move(former)};
  for (const Value& each : *enabled) membership.enabled.insert(each.string().toString());
  return Account{place.toString(), computer, {}, std::move(membership)};
}

// Takes the secret that stands before the entries away from them; absent when it is cut.
std::optional<std::string_view> takeSecret(std::string_view& bytes) {
  if (bytes.size() < kLengthBytes) return std::nullopt;
  const std::size_t size = loadBigEndian(bytes.data(), kLengthBytes);
  bytes.remove_prefix(kLengthBytes);
  if (bytes.size() < size) return std::nullopt;
  const std::string_view secret = bytes.substr(0, size);
  bytes.remove_prefix(size);
  return secret;
}

}  // namespace

bool isMembershipFile(std::string_view bytes) {
  return bytes.starts_with(kHead) || bytes.starts_with(kFormerHead);
}

std::optional<Account> accountInMembershipFile(std::string_view bytes) {
  if (!isMembershipFile(bytes) || bytes.size() < kKeysEnd) return std::nullopt;
  const bool isFormer = bytes.starts_with(kFormerHead);
  std::string_view rest = bytes.substr(kKeysEnd);
  auto secret = isFormer ? std::string_view() : takeSecret(rest);
  Value value;
  try {
    value = readPropertyList(rest);
  } catch (const PropertyListException&) {
    return std::nullopt;
  }
  const Dictionary* const entries = value.as<Dictionary>();
  if (!entries) return std::nullopt;
  const String formerSecret = entries->string(kSecret);
  if (isFormer) secret = formerSecret ? std::optional(formerSecret.view()) : std::nullopt;
  if (!secret) return std::nullopt;
  return accountIn(*entries, bytes.substr(kHead.size(), AccountKey::kBytes),
                   bytes.substr(kHead.size() + AccountKey::kBytes, ComputerKeys::kKeyBytes), *secret);
}

SecretBytes membershipFileOf(const Account& account) {
  const Membership& membership = account.membership;
  Array enabled;
  for (const std::string& each : membership.enabled) enabled.append(each);
  Dictionary left;
  for (const auto& [folder, last] : membership.left) left.set(folder, last);
  const std::string entries =
      writeBinaryPropertyList(Dictionary{{kPlace, account.url},
                                         {kUser, membership.credentials.user},
                                         {kAccount, membership.account},
                                         {kGeneration, membership.generation},
                                         {kComputer, account.computer},
                                         {kName, membership.name},
                                         {kEnabled, enabled},
                                         {kCarded, membership.carded},
                                         {kLeft, left},
                                         {kFormer, arrayOf(membership.former)},
                                         {kNewestNumber, membership.newest.number},
                                         {kNewestHash, Data(membership.newest.hash)}});
  const std::string_view secret = membership.credentials.secret.view();
  if (secret.size() >> (8 * kLengthBytes) != 0)
    throw PlatformException(DotPeltoException, Message("What opens the place is too long."));
  char length[kLengthBytes];
  storeBigEndian(length, secret.size(), kLengthBytes);
  SecretBytes bytes(kKeysEnd + kLengthBytes + secret.size() + entries.size());
  unsigned char* at = bytes.data();
  for (const std::string_view each :
       {kHead, membership.key->bytes(), membership.keys->secretKey(), std::string_view(length, kLengthBytes),
        secret, std::string_view(entries)}) {
    at = std::copy(each.begin(), each.end(), at);
  }
  return bytes;
}

}  // namespace corvane::pelto
