#pragma once

#include <set>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"

namespace corvane {

/// An online service that knows every account, in the place of the real one for as long as this object lives.
class ScriptedService {
 public:
  /// Not empty: it does not answer, for this reason.
  std::string problem;
  bool enabled = true;  ///< whether this computer syncs bookmarks with it
  /// The ids of the pushes that it has.
  std::set<std::string> pushes;
  /// What it was asked, in order, also when it did not answer.
  std::vector<std::string> calls;
  /// Done before each answer.
  std::function<void()> meanwhile = [] {};

 private:
  class ScriptedHub : public pelto::Hub {
   public:
    explicit ScriptedHub(ScriptedService& service) : _service(service) {}

    pelto::RemoteChanges remoteChanges(const std::vector<pelto::HubState>&) override {
      _service.answer("remote changes");
      pelto::RemoteChanges changes;
      changes.enabled = _service.enabled;
      return changes;
    }
    pelto::HubPushed push(const pelto::HubPush&) override {
      _service.answer("push");
      return {};
    }
    bool hasPush(const String& pushId) override {
      _service.answer("has push");
      return _service.pushes.contains(pushId.toString());
    }

   private:
    ScriptedService& _service;
  };

  void answer(const std::string& call) {
    calls.push_back(call);
    meanwhile();
    if (!problem.empty()) throw PlatformException(pelto::DotPeltoException, problem);
  }

  pelto::HubMaker _maker = [this](const pelto::Account&) { return std::make_unique<ScriptedHub>(*this); };
  pelto::HubMakerScope _scope{_maker};
};

}  // namespace corvane
