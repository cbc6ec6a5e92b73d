#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/seal/AccountKey.h"
#include "CorvaneSyncClient/platform/pelto/seal/ComputerKeys.h"
#include "CorvaneSyncClient/platform/pelto/seal/Roster.h"

namespace corvane::pelto {

/// The contents of a generation's last commit: computers are taken out, and each that remains is handed the
/// key of the next generation in a box that it alone can open. Nobody is taken out when only the key is to
/// change, since it may have become known.
struct GenerationChange {
  struct Box {
    String computer;
    std::string bytes;
    friend bool operator==(const Box&, const Box&) = default;
  };

  std::int64_t generation = 0;  ///< the next one
  std::vector<String> removed;  ///< the computers that are taken out, by identifier
  std::vector<Box> boxes;       ///< by identifier, none for those
  friend bool operator==(const GenerationChange&, const GenerationChange&) = default;
};

/// Hands `next` to everybody on `roster` but `removed`, who come in any order. `present` is the key of the
/// generation before, with which a box proves that it was made by somebody who belonged to the account.
/// Raises SealedFormException for an entry whose public key no computer can have.
GenerationChange changeGeneration(const AccountKey& present, const AccountKey& next,
                                  const std::string& account, std::int64_t generation, const Roster& roster,
                                  std::vector<String> removed);

/// The key that the change hands to this computer. Absent when it has no box there, or one that was not made
/// for it, this account and this generation by somebody who has `present`.
std::optional<AccountKey> keyFrom(const GenerationChange& change, const AccountKey& present,
                                  const std::string& account, const String& computer,
                                  const ComputerKeys& keys);

/// The change as part of a commit.
Value valueOf(const GenerationChange& change);
/// Reads what `valueOf` wrote, and nothing else. Raises SealedFormException.
GenerationChange generationChangeFrom(const Value& value);

}  // namespace corvane::pelto
