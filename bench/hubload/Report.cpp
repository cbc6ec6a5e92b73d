#include "bench/hubload/Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace corvane::hubload {

namespace {

const char* const kNames[kKinds] = {"load", "pull", "quiet", "take", "edit"};

// The least value that at least that part of all values does not exceed; `values` are sorted and not empty.
double percentile(const std::vector<double>& values, double part) {
  const auto rank = static_cast<std::size_t>(std::ceil(part * static_cast<double>(values.size())));
  return values[std::max<std::size_t>(rank, 1) - 1];
}

void printKind(Kind kind, const std::vector<Sample>& samples, double seconds) {
  std::vector<double> times, serviceTimes;
  std::int64_t sent = 0, received = 0;
  int retries = 0, failures = 0;
  for (const Sample& sample : samples) {
    if (sample.kind != kind) continue;
    times.push_back(sample.seconds * 1000);
    serviceTimes.push_back(sample.serviceSeconds * 1000);
    sent += sample.sent;
    received += sample.received;
    retries += sample.retries;
    failures += sample.failed ? 1 : 0;
  }
  if (times.empty()) return;
  std::sort(times.begin(), times.end());
  std::sort(serviceTimes.begin(), serviceTimes.end());
  const auto count = static_cast<std::int64_t>(times.size());
  std::printf("  %-6s %8lld %9.1f %9.1f %8.1f %8.1f %8.1f %9.1f %8d %7d %10lld %10lld\n",
              kNames[static_cast<int>(kind)], static_cast<long long>(count),
              static_cast<double>(count) / seconds, percentile(times, 0.5), percentile(times, 0.95),
              percentile(times, 0.99), times.back(), percentile(serviceTimes, 0.5), retries, failures,
              static_cast<long long>(sent / count), static_cast<long long>(received / count));
}

}  // namespace

void printHead() {
  std::printf("  %-6s %8s %9s %9s %8s %8s %8s %9s %8s %7s %10s %10s\n", "kind", "sessions", "a second",
              "median ms", "95%", "99%", "greatest", "at server", "retries", "failed", "bytes sent",
              "received");
}

void printPhase(const std::string& name, const std::vector<Sample>& samples, double seconds,
                const Effort* effort) {
  const auto count = static_cast<double>(samples.size());
  std::printf("%s: %zu sessions in %.1f s, %.1f a second", name.c_str(), samples.size(), seconds,
              count / seconds);
  if (effort && count > 0) {
    std::printf("; at the server %.1f pages and %.1f rows a session",
                static_cast<double>(effort->pages) / count, static_cast<double>(effort->rows) / count);
  }
  std::printf("\n");
  for (int kind = 0; kind < kKinds; ++kind) printKind(static_cast<Kind>(kind), samples, seconds);
  std::fflush(stdout);
}

}  // namespace corvane::hubload
