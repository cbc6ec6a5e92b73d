#pragma once

#include <chrono>
#include <string>
#include <unordered_map>

namespace corvane::hubserver {

using TimePoint = std::chrono::steady_clock::time_point;

/// How many requests each computer may make: a bucket of tokens for each, that fills at a steady rate.
class RateLimits {
 public:
  /// `atOnce`: what a full bucket holds. `perSecond`: what flows in.
  RateLimits(double atOnce, double perSecond) : _atOnce(atOnce), _perSecond(perSecond) {}

  /// Takes one request out of the bucket of `who`; false when there is none left.
  bool take(const std::string& who, TimePoint now);
  /// Forgets buckets that are full again.
  void tidy(TimePoint now);
  std::size_t buckets() const { return _buckets.size(); }

 private:
  struct Bucket {
    double left;
    TimePoint filled;
  };

  double contentsOf(const Bucket& bucket, TimePoint now) const;

  double _atOnce;
  double _perSecond;
  std::unordered_map<std::string, Bucket> _buckets;
};

}  // namespace corvane::hubserver
