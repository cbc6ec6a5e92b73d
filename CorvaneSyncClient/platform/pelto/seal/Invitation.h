#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/pelto/seal/AccountKey.h"

namespace corvane::pelto {

/// A commit that a computer knows to be part of its account's chain. A place that shows an older chain has
/// gone back or withholds something.
struct CommitMark {
  static constexpr std::size_t kHashBytes = 16;

  std::int64_t number = 0;  ///< 0: none is known
  std::string hash;         ///< the first `kHashBytes` of the hash of its sealed bytes; empty for none
  friend bool operator==(const CommitMark&, const CommitMark&) = default;
};

/// What a computer needs to join an account, all of it secret.
struct Invitation {
  std::string address;  ///< of the place
  std::string
      user;  ///< with what the place lets one in, where that is the same for all computers; else empty
  SharedSecret secret;
  std::string account;  ///< an upper-case UUID
  std::int64_t generation = 0;
  AccountKey key;
  CommitMark newest;  ///< when the invitation was made
};

/// Bytes of address, user and secret together.
inline constexpr std::size_t kLongestInvitedAddress = 1500;

/// Text that is no invitation. The reason tells what is wrong, by the number of the group, and shows nothing
/// of the text.
class InvitationException : public PlatformException {
 public:
  InvitationException(Message reason, bool isIncomplete)
      : PlatformException("DotPeltoInvitationException", std::move(reason)), _isIncomplete(isIncomplete) {}

  /// Whether all that is there is right, and something is missing at the end.
  bool isIncomplete() const { return _isIncomplete; }

 private:
  bool _isIncomplete;
};

/// The invitation's bytes. Raises PlatformException when address, user and secret are too long.
SecretBytes bytesOf(const Invitation& invitation);
/// Reads what `bytesOf` made, with or without zeros after it; absent for anything else.
std::optional<Invitation> invitationIn(std::string_view bytes);

/// The invitation as one line, "CORVANE-ABCDEFGHIJKLMNOP-…", for copying and for QR codes, which store
/// capitals, digits and hyphens densely. Groups of 16 characters of base32 (RFC 4648), which keep their
/// meaning when capitals are lost and can be read out, as those of base64url do not. Nine bytes of a group
/// are the invitation's, the tenth checks all groups up to there. Raises as `bytesOf`. The caller wipes
/// the text.
std::string lineOf(const Invitation& invitation);

/// The invitation as words for reading out and typing, five in a line, which is one group. A word stands for
/// 16 bits: consonant, vowel, consonant, vowel, consonant, of 16 consonants and 4 vowels. Otherwise as
/// `lineOf`.
std::string wordsOf(const Invitation& invitation);

/// Reads either form. White space, line breaks, hyphens and capitals do not count, nor anything but letters
/// between the words. Raises InvitationException.
Invitation invitationFrom(std::string_view text);

}  // namespace corvane::pelto
