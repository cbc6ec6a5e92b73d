#pragma once

#include <poll.h>

#include <chrono>
#include <optional>
#include <span>
#include <string>

#include "CorvaneSyncClient/platform/pelto/place/HubWait.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"

namespace corvane::pelto {

/// Waits at the current user's account for what other computers give, where the account's place is a
/// corvane-hub that this computer syncs bookmarks with; elsewhere it does nothing, and asks nobody. It says
/// nothing of what goes wrong, which the next exchange meets as well.
class AccountWatch {
 public:
  /// As `ServiceWatch::poll`.
  bool poll(std::span<const pollfd> files, std::optional<std::chrono::milliseconds> atMost);
  /// As `ServiceWatch::takeNews`.
  bool takeNews();
  /// As `ServiceWatch::renew`.
  void renew();

 private:
  /// What is waited for.
  struct Goal {
    std::string url;
    SharedSecret token;
    std::string object;

    bool operator==(const Goal& other) const;
  };
  static std::optional<Goal> goalOfUser();

  void proceed();
  void ask();
  void take(HubWait::Answer answer);
  void askLater();
  std::chrono::milliseconds untilNextStep(Deadline end) const;

  std::optional<Goal> _goal;
  std::optional<HubWait> _wait;  ///< of the goal's place
  bool _isAsking = false;
  bool _isThere = false;  ///< the goal's object, at the last answer
  bool _hasNews = false;
  int _failures = 0;                      ///< in a row
  Deadline _notBefore = Deadline::max();  ///< of the next question
};

}  // namespace corvane::pelto
