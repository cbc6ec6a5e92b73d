#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "tools/corvane-hub/Accounts.h"
#include "tools/corvane-hub/FolderWatch.h"
#include "tools/corvane-hub/RateLimits.h"

namespace corvane::hubserver {

class Connection;

// The limits. Somebody's bookmarks need far less; nobody gets at more.
inline constexpr std::size_t kLongestHead = 8 * 1024;
inline constexpr std::uint64_t kLargestObject = std::uint64_t{64} << 20;
inline constexpr int kConnectionsOfAccount = 100;
inline constexpr double kRequestsAtOnce = 1000;
inline constexpr double kRequestsPerSecond = 100;
inline constexpr std::chrono::seconds kHeadTime{10};  ///< for a request's head, and for TLS to begin
inline constexpr std::chrono::seconds kIdleTime{
    75};  ///< between two requests; longer than nginx keeps a connection
inline constexpr std::chrono::seconds kMoveTime{20};  ///< for a body, to which comes a second for each KiB
inline constexpr std::chrono::seconds kLingerTime{
    5};  ///< for a client to read a refusal while it still sends
inline constexpr std::chrono::seconds kLongestWait{300};
/// How many files are written to the disk at once.
inline constexpr std::size_t kDiskThreads = 8;

/// What the connections share. All of it belongs to the one thread that runs `context`; those of `disk` wait
/// for the disk.
struct HubService {
  HubService(const std::string& data) : accounts(data), disk(kDiskThreads), watch(context) {}

  /// Who uses the account may have one connection more; false where that would be too many.
  bool enterAccount(const std::string& account);
  void leaveAccount(const std::string& account);

  boost::asio::io_context context{1};
  Accounts accounts;
  boost::asio::thread_pool disk;
  FolderWatch watch;
  RateLimits rates{kRequestsAtOnce, kRequestsPerSecond};
  std::unordered_set<std::shared_ptr<Connection>> connections;
  std::unordered_map<std::string, int> connectionsOfAccounts;
  /// Where every connection reads to and sends from for a moment.
  std::array<char, 64 * 1024> buffer;
  bool isStopping = false;
  bool saidNoWatches = false;
};

}  // namespace corvane::hubserver
