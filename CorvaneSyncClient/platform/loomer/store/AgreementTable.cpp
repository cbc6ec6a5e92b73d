#include "CorvaneSyncClient/platform/loomer/store/AgreementTable.h"

#include <cstring>
#include <string>

#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReadAgreement = MessageText<1>("cannot read what a client agreed to: %1").english();
constexpr const char* kWriteAgreement = MessageText<1>("cannot note what a client agrees to: %1").english();

// As this machine holds it: elsewhere nothing is taken for the same.
HashKey keyIn(std::string_view bytes) {
  HashKey key;
  if (bytes.size() >= sizeof key) std::memcpy(&key, bytes.data(), sizeof key);
  return key;
}

std::string_view asBytes(const HashKey& key) { return {reinterpret_cast<const char*>(&key), sizeof key}; }

std::string_view asBytes(const std::vector<std::uint64_t>& digests) {
  return {reinterpret_cast<const char*>(digests.data()), digests.size() * sizeof(std::uint64_t)};
}

}  // namespace

std::optional<Agreement> AgreementTable::find(std::int64_t client) {
  Statement query =
      _store.database().query("SELECT hash_key, digests FROM agreements WHERE client = ?", kReadAgreement);
  if (!query.open(client).next()) return std::nullopt;
  Agreement agreement{keyIn(query.blob(0)), {}};
  const std::string_view digests = query.blob(1);
  agreement.digests.resize(digests.size() / sizeof(std::uint64_t));
  if (!agreement.digests.empty())
    std::memcpy(agreement.digests.data(), digests.data(), asBytes(agreement.digests).size());
  return agreement;
}

void AgreementTable::replace(std::int64_t client, const std::optional<Agreement>& agreement) {
  Database& database = _store.database();
  if (!agreement)
    return database.query("DELETE FROM agreements WHERE client = ?", kWriteAgreement).run(client);
  database
      .query("INSERT OR REPLACE INTO agreements(client, hash_key, digests) VALUES(?, ?, ?)", kWriteAgreement)
      .run(client, Blob{asBytes(agreement->key)}, Blob{asBytes(agreement->digests)});
}

HashKey AgreementTable::freshKey() {
  Statement query = _store.database().query("SELECT randomblob(16)", kWriteAgreement);
  return query.open().next() ? keyIn(query.blob(0)) : HashKey();
}

}  // namespace corvane::loomer
