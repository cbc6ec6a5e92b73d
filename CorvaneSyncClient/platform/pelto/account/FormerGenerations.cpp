#include "CorvaneSyncClient/platform/pelto/account/FormerGenerations.h"

#include <sodium.h>

#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

static_assert(kKeyBoxBytes == AccountKey::kBytes + crypto_box_SEALBYTES);

std::string keyBoxFor(const std::string& publicKey, const AccountKey& key) {
  auto box = sealedBox(publicKey, SecretBytes(key.bytes()));
  if (!box) throw PlatformException(DotPeltoException, Message("This computer's public key is none."));
  return *std::move(box);
}

std::optional<Sealer> sealerOf(const FormerGeneration& former, const std::string& account,
                               const ComputerKeys& keys) {
  const auto key = keys.open(former.keyBox, AccountKey::kBytes);
  if (!key) return std::nullopt;
  return Sealer(AccountKey(key->view()), account, former.generation);
}

}  // namespace corvane::pelto
