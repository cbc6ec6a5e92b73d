#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::pelto {

namespace {
// A server that takes over lacks a few pushes, those of minutes; of a backup it matters less which push it
// ends with.
constexpr std::int64_t kNearRevisions = 64;
}  // namespace

std::vector<std::int64_t> sampledRevisions(std::int64_t since, std::int64_t now) {
  std::vector<std::int64_t> revisions;
  if (since < 0 || now <= since) return revisions;
  const std::int64_t farthest = now - since - 1;
  for (std::int64_t distance = 1; distance <= farthest;) {
    revisions.push_back(now - distance);
    if (distance > farthest / 2 && distance >= kNearRevisions) break;
    distance = distance < kNearRevisions ? distance + 1 : distance * 2;
  }
  return revisions;
}

}  // namespace corvane::pelto
