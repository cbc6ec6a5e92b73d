#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

namespace corvane::loomer {

/// What a client gave to the session after which it, its base and the truth last said the same of everything.
struct Agreement {
  HashKey key;                         ///< of the digests
  std::vector<std::uint64_t> digests;  ///< of the client's records; see `recordDigests` of a data source
};

/// The clients' agreements. One stands for as long as the client's base and the truth's revision do.
class AgreementTable {
 public:
  explicit AgreementTable(TruthStore& store) : _store(store) {}

  /// Nothing where something is known not to agree, and where nobody could tell.
  std::optional<Agreement> find(std::int64_t client);
  /// Writes it in place of an older one, in the open transaction; nothing takes that one out.
  void replace(std::int64_t client, const std::optional<Agreement>& agreement);
  /// One that nobody has used before.
  HashKey freshKey();

 private:
  TruthStore& _store;
};

}  // namespace corvane::loomer
