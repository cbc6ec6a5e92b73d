#include "CorvaneSyncClient/platform/pelto/seal/Invitation.h"

#include <sodium.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/InvitationGroups.h"

namespace corvane::pelto {

namespace {

constexpr std::string_view kPrefix = "corvane";
constexpr unsigned char kForm = 1;
constexpr std::size_t kMostText = 64 * 1024;

// What an invitation carries, in this order; numbers with the most significant byte first.
constexpr std::size_t kFormBytes = 1;
constexpr std::size_t kLengthBytes = 2;  // of all that the invitation carries but the zeros at the end
constexpr std::size_t kAccountBytes = 16;
constexpr std::size_t kGenerationBytes = 3;
constexpr std::size_t kNumberBytes = 5;
constexpr std::size_t kFixedBytes = kFormBytes + kLengthBytes + AccountKey::kBytes + kAccountBytes +
                                    kGenerationBytes + kNumberBytes + CommitMark::kHashBytes;
// After them what concerns the place, then a checksum of everything.
constexpr std::size_t kLongestPlace = kLongestInvitedAddress + 2;
constexpr std::size_t kChecksumBytes = 4;

// Whether that many bytes can be those of an invitation.
bool isSize(std::size_t size) {
  return size >= kFixedBytes + kChecksumBytes && size <= kFixedBytes + kLongestPlace + kChecksumBytes;
}

[[noreturn]] void fail(const Message& reason) { throw InvitationException(reason, false); }

std::string checksum(std::string_view bytes) {
  unsigned char hash[crypto_generichash_BYTES];
  crypto_generichash(hash, sizeof hash, unsignedOf(bytes.data()), bytes.size(), nullptr, 0);
  return {reinterpret_cast<const char*>(hash), kChecksumBytes};
}

class Writer {
 public:
  explicit Writer(std::size_t size) : _bytes(size) {}

  void add(std::string_view bytes) {
    std::copy(bytes.begin(), bytes.end(), _bytes.data() + _at);
    _at += bytes.size();
  }
  void add(std::uint64_t number, std::size_t size) {
    char bytes[sizeof number];
    storeBigEndian(bytes, number, size);
    add(std::string_view(bytes, size));
  }
  std::string_view written() const { return _bytes.view().substr(0, _at); }
  SecretBytes finish() { return std::move(_bytes); }

 private:
  SecretBytes _bytes;
  std::size_t _at = 0;
};

class Reader {
 public:
  explicit Reader(std::string_view bytes) : _bytes(bytes) {}

  std::string_view take(std::size_t size) {
    const std::string_view taken = _bytes.substr(0, size);
    _bytes.remove_prefix(size);
    return taken;
  }
  std::int64_t number(std::size_t size) {
    return static_cast<std::int64_t>(loadBigEndian(take(size).data(), size));
  }

 private:
  std::string_view _bytes;
};

// "ADDRESS\0USER\0SECRET"
bool readPlace(std::string_view bytes, Invitation& invitation) {
  const std::size_t user = bytes.find('\0');
  const std::size_t secret = user == std::string_view::npos ? user : bytes.find('\0', user + 1);
  if (secret == std::string_view::npos || bytes.find('\0', secret + 1) != std::string_view::npos)
    return false;
  invitation.address = bytes.substr(0, user);
  invitation.user = bytes.substr(user + 1, secret - user - 1);
  invitation.secret = SharedSecret(bytes.substr(secret + 1));
  return true;
}

// Whether the text is a line; else it is taken for words, which have no c.
bool takePrefix(std::string_view& text) {
  std::size_t matched = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (isAsciiSpace(text[at])) continue;
    if (asciiLowerCase(text[at]) != kPrefix[matched]) return false;
    if (++matched == kPrefix.size()) {
      text.remove_prefix(at + 1);
      return true;
    }
  }
  return false;
}

[[noreturn]] void failAsMisprinted(std::size_t group) {
  fail(Message("Group %1 of the invitation is not as it was printed.", std::to_string(group)));
}

// How many groups an invitation has whose first ones are these.
std::size_t wantedGroups(const SecretBytes& carried) {
  if (carried.data()[0] != kForm) {
    fail(Message("The invitation is of form %1, which only a newer version can read.",
                 std::to_string(carried.data()[0])));
  }
  const std::size_t size = carried.data()[1] << 8 | carried.data()[2];
  if (!isSize(size)) failAsMisprinted(1);
  return (size + kCarriedBytes - 1) / kCarriedBytes;
}

void checkGroups(const ReadGroups& read) {
  const std::size_t right = rightGroups(read.groups), whole = read.groups.size() / kGroupBytes;
  if (right < whole) failAsMisprinted(right + 1);
  if (read.wrongGroup > 0) {
    fail(Message("Group %1 of the invitation holds a character that no invitation has.",
                 std::to_string(read.wrongGroup)));
  }
  if (whole == 0)
    throw InvitationException(Message("There is not even a whole group of an invitation."), true);
}

}  // namespace

SecretBytes bytesOf(const Invitation& invitation) {
  const auto account = uuidBytes(invitation.account);
  if (!account || invitation.generation >> (8 * kGenerationBytes) != 0 ||
      invitation.newest.number >> (8 * kNumberBytes) != 0) {
    throw PlatformException(NSInvalidArgumentException, "no account that an invitation can be made for");
  }
  const std::string_view separator("\0", 1);
  const std::size_t place = invitation.address.size() + invitation.user.size() +
                            invitation.secret.view().size() + 2 * separator.size();
  if (place > kLongestPlace) {
    throw PlatformException(
        "DotPeltoInvitationException",
        Message("The address of the place is too long for an invitation: with what opens it, "
                "it may have %1 bytes.",
                std::to_string(kLongestInvitedAddress)));
  }
  Writer writer(kFixedBytes + place + kChecksumBytes);
  writer.add(kForm, kFormBytes);
  writer.add(kFixedBytes + place + kChecksumBytes, kLengthBytes);
  writer.add(invitation.key.bytes());
  writer.add({account->data(), account->size()});
  writer.add(static_cast<std::uint64_t>(invitation.generation), kGenerationBytes);
  writer.add(static_cast<std::uint64_t>(invitation.newest.number), kNumberBytes);
  std::string hash = invitation.newest.hash;
  hash.resize(CommitMark::kHashBytes, '\0');
  for (const std::string_view each :
       {std::string_view(hash), std::string_view(invitation.address), separator,
        std::string_view(invitation.user), separator, invitation.secret.view()}) {
    writer.add(each);
  }
  writer.add(checksum(writer.written()));
  return writer.finish();
}

std::optional<Invitation> invitationIn(std::string_view all) {
  if (all.size() < kFormBytes + kLengthBytes || static_cast<unsigned char>(all[0]) != kForm)
    return std::nullopt;
  const std::size_t size = loadBigEndian(all.data() + kFormBytes, kLengthBytes);
  if (!isSize(size) || size > all.size() || all.find_first_not_of('\0', size) != std::string_view::npos)
    return std::nullopt;
  const std::string_view summed = all.substr(0, size - kChecksumBytes);
  if (all.substr(summed.size(), kChecksumBytes) != checksum(summed)) return std::nullopt;
  Reader reader(summed);
  reader.take(kFormBytes + kLengthBytes);
  Invitation invitation{{}, {}, {}, {}, 0, AccountKey(reader.take(AccountKey::kBytes)), {}};
  UuidBytes account{};
  std::memcpy(account.data(), reader.take(kAccountBytes).data(), kAccountBytes);
  invitation.account = uuidString(account);
  invitation.generation = reader.number(kGenerationBytes);
  invitation.newest.number = reader.number(kNumberBytes);
  const std::string_view hash = reader.take(CommitMark::kHashBytes);
  if (invitation.newest.number > 0) invitation.newest.hash = hash;
  if (!readPlace(reader.take(summed.size() - kFixedBytes), invitation)) return std::nullopt;
  return invitation;
}

std::string lineOf(const Invitation& invitation) {
  std::string groups = base32Groups(groupsOf(bytesOf(invitation)));
  std::string line;
  line.reserve(kPrefix.size() + 1 + groups.size());
  for (const char each : kPrefix) line += static_cast<char>(each - 'a' + 'A');
  line += '-';
  line += groups;
  wipe(groups);
  return line;
}

std::string wordsOf(const Invitation& invitation) { return wordGroups(groupsOf(bytesOf(invitation))); }

Invitation invitationFrom(std::string_view text) {
  if (text.size() > kMostText) fail(Message("This is too long for an invitation."));
  const bool isLine = takePrefix(text);
  const ReadGroups read = isLine ? readBase32Groups(text) : readWordGroups(text);
  checkGroups(read);
  const SecretBytes carried = carriedBy(read.groups);
  const std::size_t whole = read.groups.size() / kGroupBytes, wanted = wantedGroups(carried);
  if (whole < wanted) {
    throw InvitationException(Message("The invitation is cut off after group %1 of %2.",
                                      std::to_string(whole), std::to_string(wanted)),
                              true);
  }
  if (whole > wanted || read.leftOver > 0) fail(Message("Something follows after the invitation's end."));
  auto invitation = invitationIn(carried.view());
  if (!invitation) fail(Message("The invitation is not as it was printed."));
  return *std::move(invitation);
}

}  // namespace corvane::pelto
