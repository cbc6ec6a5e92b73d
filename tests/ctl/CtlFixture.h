#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {

/// Clients whose real sessions fill a store in a private home, and the real loomerctl on that home.
class CtlTest : public EngineTest {
 protected:
  struct Run {
    int status = -1;
    std::string out;
    std::string err;
  };

  CtlTest();

  /// Runs loomerctl with this on its standard input.
  Run ctl(const std::vector<std::string>& arguments, const std::string& input = "");
  /// What Python makes of `expression` with the command's JSON as `d`. Fails the test unless the command
  /// answers `status` and valid JSON.
  std::string json(const std::vector<std::string>& arguments, const std::string& expression, int status = 0);
  /// From now on loomerctl works on a copy of the store in another home, changed by `sql` with every
  /// constraint switched off.
  void breakCopy(const std::string& sql);
  /// From now on loomerctl works in another home, which has no store.
  void useEmptyHome();
  std::string ctlStorePath() const { return loomer::storePathForHome(home); }

  /// Two clients with one tree: `BookmarksBar!(News(Daily@http://d/ Weekly@http://w/) Shop@http://s/)
  /// Zoo@http://z/`.
  void seed();
  /// The number of the record of this title.
  std::string numberOf(const std::string& title);
  std::int64_t lastSession() { return number("SELECT max(id) FROM sessions"); }
  void writeFile(const std::string& path, const std::string& bytes);

  std::string home;
  std::map<std::string, std::string> environment;
  std::unique_ptr<ScriptedClient> a, b;
};

}  // namespace corvane
