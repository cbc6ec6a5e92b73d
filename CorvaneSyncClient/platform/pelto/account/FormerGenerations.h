#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/pelto/seal/AccountKey.h"
#include "CorvaneSyncClient/platform/pelto/seal/ComputerKeys.h"
#include "CorvaneSyncClient/platform/pelto/seal/GenerationChange.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"

namespace corvane::pelto {

/// What a computer keeps of a generation that it has left for the next one, so that it can end it again where
/// the place was put back to before that. Computers that have not followed learn of the next key by it.
struct FormerGeneration {
  std::int64_t generation = 0;
  std::string keyBox;       ///< its key, in a box that this computer alone can open
  GenerationChange change;  ///< with which it ended
  std::string last;         ///< name of the commit that holds that, as far as this computer knows

  friend bool operator==(const FormerGeneration&, const FormerGeneration&) = default;
};

/// Who has not followed through more changes of the key than this is handed no key any more where the place
/// was put back to before all of them.
inline constexpr std::int64_t kMostFormerGenerations = 8;

/// Of a key's box.
inline constexpr std::size_t kKeyBoxBytes = 80;

/// Puts the key into a box for the computer with that public key. Raises DotPeltoException for a key that no
/// computer can have.
std::string keyBoxFor(const std::string& publicKey, const AccountKey& key);

/// Seals what `account` kept in that generation; absent when the box is not for these keys.
std::optional<Sealer> sealerOf(const FormerGeneration& former, const std::string& account,
                               const ComputerKeys& keys);

}  // namespace corvane::pelto
