#include "CorvaneSyncClient/platform/loomer/session/SessionGuard.h"

#include <cstdio>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"

namespace corvane::loomer {

namespace {

constexpr std::size_t kDeletionsWithoutApproval = 20;
constexpr std::size_t kSmallestTreeToEmpty = 5;

// Fowler, Noll and Vo's hash, variant 1a.
class Digest {
 public:
  void add(std::int64_t number) {
    for (int shift = 0; shift < 64; shift += 8) addByte(static_cast<unsigned char>(number >> shift));
  }
  void add(const String& text) {
    add(text ? static_cast<std::int64_t>(text.view().size()) : std::int64_t{-1});
    for (const char byte : text.view()) addByte(static_cast<unsigned char>(byte));
  }
  std::string text() const {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(_hash));
    return digits;
  }

 private:
  void addByte(unsigned char byte) { _hash = (_hash ^ byte) * 0x100000001b3U; }
  std::uint64_t _hash = 0xcbf29ce484222325U;
};

std::vector<RecordId> deletions(const MergeResult& plan) {
  std::vector<RecordId> records;
  for (const TruthChange& change : plan.truthChanges) {
    if (change.after.deleted && change.before && !change.before->deleted) records.push_back(change.after.id);
  }
  return records;
}

}  // namespace

void guard(const Opening& opening, const Plan& plan) {
  const MergeResult& result = plan.result;
  if (!mustBeApproved(result)) return;
  Refusal refusal{planDigest(result), result.deletedByAbsence, result.liveBefore, opening.began,
                  std::nullopt};
  const bool approved = opening.refusal && opening.refusal->approved;
  if (approved && opening.refusal->digest == refusal.digest) return;
  const std::string_view client = opening.client.identifier.view();
  Message reason(
      "The client %1 lacks %2 of %3 bookmarks and folders, so that this session would delete them "
      "everywhere. Nothing was changed.",
      client, refusal.deletions, refusal.live);
  if (approved) {
    reason =
        sentences(std::move(reason), Message("The plan that was approved was another one: the client or the "
                                             "agreed bookmarks have changed since."));
  }
  reason =
      sentences(std::move(reason),
                Message("If they are meant to go, look at `loomerctl plan %1`, run `loomerctl approve %1` "
                        "and sync again; to give them back to the client, run `loomerctl restore %1` and "
                        "sync again.",
                        client));
  throw SessionRefused(std::move(reason), std::move(refusal), deletions(result));
}

bool mustBeApproved(const MergeResult& plan) {
  const std::size_t deleted = plan.deletedByAbsence;
  if (deleted > kDeletionsWithoutApproval && deleted * 2 > plan.liveBefore) return true;
  return deleted >= kSmallestTreeToEmpty && deleted == plan.liveBefore;
}

std::string planDigest(const MergeResult& plan) {
  Digest digest;
  for (const TruthChange& change : plan.truthChanges) {
    const TruthRecord& after = change.after;
    digest.add(after.id);
    digest.add(static_cast<std::int64_t>(after.deleted));
    digest.add(after.parent);
    digest.add(after.place);
    digest.add(after.content.name);
    digest.add(after.content.url);
    digest.add(static_cast<std::int64_t>(after.content.tabGroup) * 2 +
               static_cast<std::int64_t>(after.content.special));
  }
  return digest.text();
}

}  // namespace corvane::loomer
