#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <optional>
#include <span>

namespace corvane {

/// Wakes a client that waits between its sessions when another computer has given something to the online
/// service. One thread.
class ServiceWatch {
 public:
  virtual ~ServiceWatch() = default;

  /// One for the user's account, which waits for nothing before the first `renew`. Where there is no account,
  /// and where its place cannot tell what comes, it only polls.
  static std::unique_ptr<ServiceWatch> watchOfUser();

  /// Waits until one of `files` can be read or has ended, or the service has something new; false when
  /// neither happens in `atMost`. Files below 0 do not count. What is asked of the service is asked here.
  virtual bool poll(std::span<const pollfd> files, std::optional<std::chrono::milliseconds> atMost) = 0;
  /// Whether the service has had something new since this was last asked: reason for a session.
  virtual bool takeNews() = 0;
  /// To be called after each session, and when the store was written otherwise: looks what is to be waited
  /// for from here on.
  virtual void renew() = 0;
};

}  // namespace corvane
