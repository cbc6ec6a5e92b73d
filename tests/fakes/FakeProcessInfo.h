#pragma once

#include <map>
#include <string>

#include "CorvaneSyncClient/platform/system/ProcessInfo.h"

namespace corvane {

/// A process, a user and a machine as a test wants them. Process ids that are not in the table are gone; the
/// process's own is alive.
class FakeProcessInfo : public ProcessInfo {
 public:
  int processId() override { return id; }
  std::string processName() override { return name; }
  std::string hostName() override { return host; }
  std::string userName() override { return user; }
  std::string fullUserName() override { return fullName; }
  std::string homeDirectory() override { return home; }
  std::string configurationDirectory() override { return home + "/.config"; }
  std::string temporaryDirectory() override { return temporary; }
  Liveness liveness(int processId) override {
    const auto known = processes.find(processId);
    if (known != processes.end()) return known->second;
    return processId == id ? Liveness::alive : Liveness::gone;
  }

  int id = 4242;
  std::string name = "corvanetool";
  std::string host = "testhost";
  std::string user = "tester";
  std::string fullName = "Test User";
  std::string home;
  std::string temporary;
  std::map<int, Liveness> processes;
};

}  // namespace corvane
