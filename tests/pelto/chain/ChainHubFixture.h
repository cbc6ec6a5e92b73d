#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/chain/MemoryPlace.h"

namespace corvane::pelto {

/// Identifiers of records.
inline String id(int number) {
  const std::string digits = std::to_string(number);
  return "0B000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits;
}

inline HubRecord bookmark(int number, const std::string& name) {
  HubRecord record;
  record.id = id(number);
  record.name = name;
  record.url = "http://" + name + "/";
  return record;
}

/// A computer's end of an account: what it has seen, and the records that it was told of.
class ChainComputer {
 public:
  ChainComputer(MemoryPlace& place, std::string keptPath, std::int64_t generation = 1)
      : _place(place.connect()), _sealer(sealerOf(generation)), _keptPath(std::move(keptPath)) {}

  static Sealer sealerOf(std::int64_t generation) {
    const char key = static_cast<char>('j' + generation);
    return {AccountKey(std::string(AccountKey::kBytes, key)), "0A000000-0000-4000-8000-000000000001",
            generation};
  }

  /// One exchange; `chain` serves it.
  RemoteChanges takeIn() {
    begin();
    RemoteChanges remote = chain->remoteChanges(seen);
    if (remote.whole) records.clear();
    for (const HubRecord& each : remote.records) {
      if (each.deleted) {
        records.erase(each.id.toString());
      } else {
        records[each.id.toString()] = each.name.toString();
      }
    }
    enter(remote.now);
    return remote;
  }
  HubPushed push(std::vector<HubRecord> given) {
    HubPush push{seen.front(), Platform::current().uuids.newUuid(), std::move(given)};
    const HubPushed pushed = chain->push(push);
    if (!pushed) return pushed;
    for (const HubRecord& each : push.records) records[each.id.toString()] = each.name.toString();
    enter({push.expected.account, push.expected.revision + 1, push.id});
    enter(pushed.now);
    return pushed;
  }
  HubPushed give(std::vector<HubRecord> given) {
    takeIn();
    return push(std::move(given));
  }
  void begin() {
    chain.reset();
    chain = std::make_unique<ChainHub>(*_place, _sealer,
                                       ChainHubOptions{_keptPath, "0F000000-0000-4000-8000-000000000001"});
  }
  std::set<std::string> names() const {
    std::set<std::string> names;
    for (const auto& [id, name] : records) names.insert(name);
    return names;
  }

  std::vector<HubState> seen;
  std::map<std::string, std::string> records;
  std::unique_ptr<ChainHub> chain;

 private:
  void enter(const HubState& state) {
    if (seen.empty() || seen.front() != state) seen.insert(seen.begin(), state);
  }

  std::unique_ptr<Place> _place;
  Sealer _sealer;
  std::string _keptPath;
};

class ChainHubTest : public testing::Test {
 protected:
  ChainHubTest() { platform.uuids.inForm = true; }

  std::unique_ptr<ChainComputer> computer(const std::string& name) {
    return std::make_unique<ChainComputer>(place, platform.directory / ("home of " + name + "/Chain.plist"));
  }
  /// One edit after the other, until there is a checkpoint. Answers how many.
  int giveUntilCheckpoint(ChainComputer& by) {
    for (int given = 1; given <= 200; ++given) {
      const std::int64_t before = by.takeIn().now.revision;
      const HubPushed pushed = by.push({bookmark(1000 + given, "n" + std::to_string(given))});
      if (pushed && pushed.now.revision == before + 2) return given;
    }
    throw std::logic_error("there is no checkpoint");
  }
  std::string failureOf(const std::function<void()>& work) {
    try {
      work();
    } catch (const PlatformException& exception) {
      return exception.reason();
    }
    return "";
  }

  StrictPlatform platform;
  MemoryPlace place;
  std::unique_ptr<ChainComputer> a = computer("a"), b = computer("b");
};

}  // namespace corvane::pelto
