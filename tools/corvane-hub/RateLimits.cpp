#include "tools/corvane-hub/RateLimits.h"

#include <algorithm>

namespace corvane::hubserver {

bool RateLimits::take(const std::string& who, TimePoint now) {
  Bucket& bucket = _buckets.try_emplace(who, Bucket{_atOnce, now}).first->second;
  bucket = {contentsOf(bucket, now), now};
  if (bucket.left < 1) return false;
  bucket.left -= 1;
  return true;
}

void RateLimits::tidy(TimePoint now) {
  std::erase_if(_buckets, [&](const auto& entry) { return contentsOf(entry.second, now) >= _atOnce; });
}

double RateLimits::contentsOf(const Bucket& bucket, TimePoint now) const {
  const std::chrono::duration<double> passed = now - bucket.filled;
  return std::min(_atOnce, bucket.left + passed.count() * _perSecond);
}

}  // namespace corvane::hubserver
