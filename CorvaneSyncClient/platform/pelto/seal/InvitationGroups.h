#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

// How an invitation's bytes become groups that a person can copy, and say which one is wrong.

/// Bytes of a group in all, and those that it carries. The last one is a check of all that was carried up to
/// there.
inline constexpr std::size_t kGroupBytes = 10;
inline constexpr std::size_t kCarriedBytes = kGroupBytes - 1;

/// The bytes, filled up with zeros, in groups.
SecretBytes groupsOf(const SecretBytes& bytes);
/// How many of the groups are right, from the first one on.
std::size_t rightGroups(const SecretBytes& groups);
/// What the groups carry, the zeros at the end included.
SecretBytes carriedBy(const SecretBytes& groups);

/// Two ways to write groups. Both answer text for the caller to wipe.
std::string base32Groups(const SecretBytes& groups);
std::string wordGroups(const SecretBytes& groups);

/// Bytes read from text: whole groups, and what is left over of the last one.
struct ReadGroups {
  SecretBytes groups;
  std::size_t leftOver = 0;    ///< characters after the last whole group
  std::size_t wrongGroup = 0;  ///< the first with a character that no group has, from 1; 0 for none
};
/// Read what the two write, in either case, whatever white space and hyphens (for words: whatever but
/// letters) stand in between. They stop at a character that no group has.
ReadGroups readBase32Groups(std::string_view text);
ReadGroups readWordGroups(std::string_view text);

}  // namespace corvane::pelto
