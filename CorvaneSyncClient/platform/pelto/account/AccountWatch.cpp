#include "CorvaneSyncClient/platform/pelto/account/AccountWatch.h"

#include <sodium.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::pelto {

namespace {

using std::chrono::milliseconds;

constexpr double kLongestPause = 600;  // seconds
// Of one wait; then it is waited again.
constexpr milliseconds kLongestPoll = std::chrono::hours(1);

bool isAnyReady(std::span<const pollfd> files, milliseconds atMost) {
  std::vector<pollfd> polled(files.begin(), files.end());
  return retryingInterrupted(
             [&] { return ::poll(polled.data(), polled.size(), static_cast<int>(atMost.count())); }) > 0;
}

}  // namespace

bool AccountWatch::Goal::operator==(const Goal& other) const {
  return url == other.url && token.view() == other.token.view() && object == other.object;
}

// Nothing for an account that cannot be read, which the next exchange complains about.
std::optional<AccountWatch::Goal> AccountWatch::goalOfUser() {
  try {
    const auto account = userAccount();
    if (!account || !account->membership.enabled.contains(kHubDataClass)) return std::nullopt;
    if (parsePlaceAddress(account->url).kind != PlaceAddress::Kind::hub) return std::nullopt;
    const auto object = nextCommitObject(*account);
    if (!object) return std::nullopt;
    return Goal{account->url, account->membership.credentials.secret, *object};
  } catch (const PlatformException&) {
    return std::nullopt;
  }
}

// An object that is still the next one after a session could not be taken in: the pauses keep that from going
// on without end.
void AccountWatch::renew() {
  std::optional<Goal> goal = goalOfUser();
  if (goal == _goal) {
    if (!_goal || _isAsking) return;
    if (!_isThere) {
      _notBefore = {};
    } else if (_notBefore == Deadline::max()) {
      askLater();
    }
    return;
  }
  const bool isAtSamePlace =
      goal && _goal && goal->url == _goal->url && goal->token.view() == _goal->token.view();
  if (!isAtSamePlace) _wait.reset();
  _goal = std::move(goal);
  _isAsking = _isThere = _hasNews = false;
  _failures = 0;
  _notBefore = {};
}

bool AccountWatch::takeNews() { return std::exchange(_hasNews, false); }

bool AccountWatch::poll(std::span<const pollfd> files, std::optional<milliseconds> atMost) {
  const Deadline end = atMost ? Deadline::clock::now() + *atMost : Deadline::max();
  while (true) {
    proceed();
    if (_hasNews || isAnyReady(files, milliseconds(0))) return true;
    if (Deadline::clock::now() >= end) return false;
    if (_isAsking) {
      _wait->poll(files, untilNextStep(end));
    } else {
      isAnyReady(files, untilNextStep(end));
    }
  }
}

milliseconds AccountWatch::untilNextStep(Deadline end) const {
  const Deadline next = _goal && !_isAsking ? std::min(end, _notBefore) : end;
  if (next == Deadline::max()) return kLongestPoll;
  const auto left = std::chrono::ceil<milliseconds>(next - Deadline::clock::now());
  return std::clamp(left, milliseconds(0), kLongestPoll);
}

void AccountWatch::proceed() {
  if (!_goal) return;
  try {
    if (!_isAsking && Deadline::clock::now() >= _notBefore) ask();
    if (!_isAsking) return;
    if (const auto answer = _wait->proceed()) take(*answer);
  } catch (const PlatformException&) {
    // There is no libcurl, which the next exchange complains about.
    _isAsking = false;
    _notBefore = Deadline::max();
  }
}

void AccountWatch::ask() {
  if (!_wait) _wait.emplace(parsePlaceAddress(_goal->url), _goal->token);
  _wait->ask(_goal->object);
  _isAsking = true;
}

void AccountWatch::take(HubWait::Answer answer) {
  _isAsking = false;
  _isThere = answer == HubWait::Answer::there;
  switch (answer) {
    case HubWait::Answer::there:
      _hasNews = true;
      _notBefore = Deadline::max();
      return;
    case HubWait::Answer::refused:
      _notBefore = Deadline::max();
      return;
    case HubWait::Answer::none:
      return askLater();
    case HubWait::Answer::notYet:
      _failures = 0;
      return renew();  // the account may be another one by now
  }
}

// Up to half as long again, so that many whom a server has lost do not come back at once.
void AccountWatch::askLater() {
  const double spread = 1 + randombytes_uniform(512) / 1024.0;
  _notBefore = after(std::min(std::pow(4.0, std::min(_failures++, 10)), kLongestPause) * spread);
}

}  // namespace corvane::pelto
