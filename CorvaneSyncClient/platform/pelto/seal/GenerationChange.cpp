#include "CorvaneSyncClient/platform/pelto/seal/GenerationChange.h"

#include <sodium.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/SealedForm.h"

namespace corvane::pelto {

namespace {

constexpr const char* kGeneration = "Generation";
constexpr const char* kRemoved = "Removed";
constexpr const char* kBoxes = "Boxes";
constexpr const char* kBox = "Box";

// In a box: the next key, and a keyed hash that binds it to its occasion.
constexpr std::size_t kProofBytes = crypto_generichash_BYTES;
constexpr std::size_t kContentsBytes = AccountKey::kBytes + kProofBytes;
constexpr std::size_t kBoxBytes = kContentsBytes + crypto_box_SEALBYTES;

constexpr std::uint64_t kSubkeyForProofs = 4;  // 1 to 3 are the Sealer's
constexpr char kContext[crypto_kdf_CONTEXTBYTES + 1] = "corvseal";

// Proofs of one change of generation.
class Prover {
 public:
  Prover(const AccountKey& present, const std::string& account, std::int64_t generation)
      : _key(kHashKeyBytes), _occasion(lengthPrefixed(account) + bigEndian(generation)) {
    crypto_kdf_derive_from_key(_key.data(), _key.size(), kSubkeyForProofs, kContext,
                               unsignedOf(present.bytes().data()));
  }

  std::string proof(std::string_view next, const String& computer, const std::string& publicKey) const {
    const std::string occasion = _occasion + lengthPrefixed(computer.view()) + lengthPrefixed(publicKey);
    crypto_generichash_state state;
    crypto_generichash_init(&state, _key.data(), _key.size(), kProofBytes);
    crypto_generichash_update(&state, unsignedOf(occasion.data()), occasion.size());
    crypto_generichash_update(&state, unsignedOf(next.data()), next.size());
    std::string proof(kProofBytes, '\0');
    crypto_generichash_final(&state, unsignedOf(proof.data()), proof.size());
    sodium_memzero(&state, sizeof state);
    return proof;
  }

 private:
  SecretBytes _key;
  std::string _occasion;
};

bool comesBefore(const String& a, const String& b) { return a.view() < b.view(); }

bool removes(const GenerationChange& change, const String& computer) {
  return std::find(change.removed.begin(), change.removed.end(), computer) != change.removed.end();
}

std::int64_t generationIn(const Dictionary& fields) {
  const auto* const generation = fields.find(kGeneration)->as<std::int64_t>();
  if (!generation || *generation < 1) failForm("change of generation", "no number of a generation");
  return *generation;
}

std::vector<String> removedIn(const Dictionary& fields) {
  std::vector<String> removed;
  for (const Value& each : arrayOf(*fields.find(kRemoved), kMostComputers, "removed computers")) {
    const std::string where = "removed computer " + std::to_string(removed.size() + 1);
    const String computer = uuidFrom(each, where);
    if (!removed.empty() && !comesBefore(removed.back(), computer)) failForm(where, kOutOfPlace);
    removed.push_back(computer);
  }
  return removed;
}

}  // namespace

GenerationChange changeGeneration(const AccountKey& present, const AccountKey& next,
                                  const std::string& account, std::int64_t generation, const Roster& roster,
                                  std::vector<String> removed) {
  const Prover prover(present, account, generation);
  std::sort(removed.begin(), removed.end(), comesBefore);
  GenerationChange change{generation, std::move(removed), {}};
  for (const RosterEntry& each : roster.entries()) {
    if (removes(change, each.computer)) continue;
    SecretBytes contents(kContentsBytes);
    std::memcpy(contents.data(), next.bytes().data(), AccountKey::kBytes);
    const std::string proof = prover.proof(next.bytes(), each.computer, each.publicKey);
    std::memcpy(contents.data() + AccountKey::kBytes, proof.data(), kProofBytes);
    auto box = sealedBox(each.publicKey, contents);
    if (!box) failForm("computer " + each.computer.toString(), "a public key that no computer can have");
    change.boxes.push_back({each.computer, *std::move(box)});
  }
  return change;
}

std::optional<AccountKey> keyFrom(const GenerationChange& change, const AccountKey& present,
                                  const std::string& account, const String& computer,
                                  const ComputerKeys& keys) {
  const auto box = std::find_if(change.boxes.begin(), change.boxes.end(),
                                [&](const auto& each) { return each.computer == computer; });
  if (box == change.boxes.end()) return std::nullopt;
  const auto contents = keys.open(box->bytes, kContentsBytes);
  if (!contents) return std::nullopt;
  const std::string_view next = contents->view().substr(0, AccountKey::kBytes);
  const std::string proof =
      Prover(present, account, change.generation).proof(next, computer, keys.publicKey());
  if (sodium_memcmp(proof.data(), contents->data() + AccountKey::kBytes, kProofBytes) != 0)
    return std::nullopt;
  return AccountKey(next);
}

Value valueOf(const GenerationChange& change) {
  Array boxes;
  Array removed;
  for (const String& each : change.removed) removed.append(each);
  for (const auto& each : change.boxes)
    boxes.append(Dictionary{{kComputer, each.computer}, {kBox, Data(each.bytes)}});
  return Dictionary{{kGeneration, change.generation}, {kRemoved, removed}, {kBoxes, boxes}};
}

GenerationChange generationChangeFrom(const Value& value) {
  const std::string whole = "change of generation";
  const Dictionary& fields = dictionaryOf(value, {kGeneration, kRemoved, kBoxes}, whole);
  GenerationChange change{generationIn(fields), removedIn(fields), {}};
  for (const Value& each : arrayOf(*fields.find(kBoxes), kMostComputers, "boxes")) {
    const std::string where = "box " + std::to_string(change.boxes.size() + 1);
    const Dictionary& box = dictionaryOf(each, {kComputer, kBox}, where);
    const String computer = uuidIn(box, kComputer, where);
    if (!change.boxes.empty() && !comesBefore(change.boxes.back().computer, computer))
      failForm(where, kOutOfPlace);
    if (removes(change, computer)) failForm(where, "for a computer that is taken out");
    change.boxes.push_back({computer, bytesIn(box, kBox, kBoxBytes, where)});
  }
  return change;
}

}  // namespace corvane::pelto
