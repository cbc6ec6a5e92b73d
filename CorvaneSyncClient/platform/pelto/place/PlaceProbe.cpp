#include "CorvaneSyncClient/platform/pelto/place/PlaceProbe.h"

#include <algorithm>
#include <barrier>
#include <cstddef>
#include <exception>
#include <thread>

#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceLeftovers.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::pelto {

namespace {

constexpr int kRacers = 8;
constexpr std::size_t kMostBytes = 8 << 20;
/// No object of an account is larger.
constexpr std::size_t kLargest = 4 << 20;

/// Of what racers write: as small as an account's objects often are. A slow line carries it many times.
constexpr std::size_t kRacedBytes = 4 << 10;

std::string contentsOf(std::ptrdiff_t racer) {
  return std::string(kRacedBytes, static_cast<char>('a' + racer));
}

// What one racer is told in each round.
struct Racer {
  std::unique_ptr<Place> place;
  std::vector<Made> told;
  std::exception_ptr failure;
};

class Probe {
 public:
  Probe(const std::function<std::unique_ptr<Place>()>& make, int rounds)
      : _make(make),
        _rounds(rounds),
        _place(make()),
        _prefix("probe/" + newTemporaryName().substr(4) + '-') {}

  PlaceFindings run() {
    try {
      tryOut();
      race();
    } catch (...) {
      cleanUpAfterFailure();
      throw;
    }
    _place->remove(_made);
    if (!get(_made.front(), Writing::contested).bytes.empty())
      refuse(Message("what was removed there is still there"),
             Message("Give this computer the right to remove files there."));
    return {_place->software(), _rounds, caveats()};
  }

 private:
  std::string newName(const std::string& last) {
    _made.push_back(_prefix + last);
    return _made.back();
  }

  GetAnswer get(const std::string& name, Writing writing, const std::string& tag = {}) {
    return _place->get({GetRequest{name, writing, tag, kMostBytes}}).front();
  }

  [[noreturn]] void refuse(const Message& cause,
                           const Message& remedy = Message("Use another place.")) const {
    throw PlaceException(
        sentences(Message("Can't keep an account in %1: %2.", _place->description(), cause), remedy));
  }

  // One after the other, as a single computer does.
  void tryOut() {
    const std::string contested = newName("new"), alone = newName("alone"), large = newName("large");
    if (get(contested, Writing::contested).state != GetAnswer::State::absent)
      refuse(Message("it answers for what is not there"));
    if (_place->putNew(contested, "first") != Made::made)
      refuse(Message("it doesn't say that it has made something"));
    if (_place->putNew(contested, "second") == Made::made) refuse(Message("it replaces what is there"));
    const GetAnswer answer = get(contested, Writing::contested);
    if (answer.bytes != "first") refuse(Message("it answers something else than was written"));
    _hasTags = !answer.tag.empty() &&
               get(contested, Writing::contested, answer.tag).state == GetAnswer::State::unchanged;
    _place->put({{alone, "alone"}});
    if (get(alone, Writing::alone).bytes != "alone")
      refuse(Message("it answers something else than was written"));
    const std::string bytes(kLargest, 'x');
    _place->put({{large, bytes}});
    if (get(large, Writing::alone).bytes != bytes) refuse(Message("it doesn't give back what is large"));
    checkListing();
  }

  void checkListing() {
    const std::vector<PlaceObject> listed = _place->list("probe");
    for (const std::string& name : _made) {
      if (std::none_of(listed.begin(), listed.end(),
                       [&](const PlaceObject& object) { return object.name == name; }))
        refuse(Message("its listing lacks what was written"));
    }
  }

  void race() {
    std::vector<std::string> names;
    for (int round = 0; round < _rounds; ++round) names.push_back(newName(std::to_string(round)));
    std::vector<Racer> racers(kRacers);
    std::barrier start(kRacers);
    {
      std::vector<std::jthread> threads;
      for (Racer& racer : racers) {
        racer.place = _make();
        threads.emplace_back(
            [&, own = contentsOf(&racer - racers.data())] { run(racer, names, own, start); });
      }
    }
    for (const Racer& racer : racers) {
      if (racer.failure) std::rethrow_exception(racer.failure);
    }
    judge(racers, names);
  }

  // An exception must not leave a thread; the others need not wait for the one that failed.
  static void run(Racer& racer, const std::vector<std::string>& names, const std::string& bytes,
                  std::barrier<>& start) {
    try {
      for (const std::string& name : names) {
        start.arrive_and_wait();
        racer.told.push_back(racer.place->putNew(name, bytes));
      }
    } catch (...) {
      racer.failure = std::current_exception();
      start.arrive_and_drop();
    }
  }

  void judge(const std::vector<Racer>& racers, const std::vector<std::string>& names) {
    std::vector<GetRequest> requests;
    for (const std::string& name : names) requests.push_back({name, Writing::contested, {}, kMostBytes});
    const std::vector<GetAnswer> there = _place->get(requests);
    int doubled = 0, untold = 0;
    for (std::size_t round = 0; round < names.size(); ++round) {
      std::vector<std::size_t> winners;
      for (std::size_t i = 0; i < racers.size(); ++i) {
        if (racers[i].told[round] == Made::made) winners.push_back(i);
      }
      const std::string& bytes = there[round].bytes;
      if (winners.size() > 1 ||
          (winners.size() == 1 && bytes != contentsOf(static_cast<std::ptrdiff_t>(winners.front()))))
        ++doubled;
      if (winners.empty()) ++untold;
    }
    if (doubled > 0) {
      refuse(Message(
          "two computers can make the same thing there, each in the belief that it alone did (in %1 of %2 "
          "rounds); changes to the bookmarks would be lost",
          std::to_string(doubled), std::to_string(_rounds)));
    }
    if (untold > _rounds / 2) refuse(Message("it doesn't say which of several computers was first"));
  }

  std::vector<std::string> caveats() const {
    std::vector<std::string> caveats = _place->caveats();
    if (!_hasTags)
      caveats.push_back(tr("It can't tell whether something has changed, so that more is transferred."));
    return caveats;
  }

  // The failure that led here is what counts.
  void cleanUpAfterFailure() {
    try {
      _place->remove(_made);
    } catch (const PlatformException&) {
      return;
    }
  }

  const std::function<std::unique_ptr<Place>()>& _make;
  int _rounds;
  std::unique_ptr<Place> _place;
  std::string _prefix;
  std::vector<std::string> _made;
  bool _hasTags = false;
};

}  // namespace

PlaceFindings probePlace(const std::function<std::unique_ptr<Place>()>& make, int rounds) {
  return Probe(make, rounds).run();
}

}  // namespace corvane::pelto
