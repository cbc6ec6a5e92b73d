#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "tests/front/Installation.h"

namespace corvane {

/// How the one line begins that a session logs whose exchange does not succeed.
inline constexpr const char* kSyncedAlone =
    "Bookmarks were synced on this computer alone, not with the online service: ";

/// A computer with the real tools, and a bookmarks file that a browser writes.
class PlaceComputer {
 public:
  /// The exit status of loomerctl; what it prints is in `printed` and `errors` then.
  int ctl(const std::string& arguments, const std::string& input = "");
  std::optional<int> run(const char* command) { return statusOf(_installation, {command}); }
  std::optional<int> run(const char* command, const char* client) {
    return statusOf(_installation, {command, client});
  }
  std::optional<int> sync() {
    return statusOf(_installation, {"--sync", "com.keldra.Corvane", "--entitynames", "anything"});
  }

  /// Bookmarks with these titles, and nothing else.
  void write(const std::vector<std::string>& titles);
  /// Everything else stays as it stands in the file.
  void add(const std::string& title);
  void remove(const std::string& title);
  std::vector<std::string> titles() const;
  /// What the tool has logged since it was last asked for that.
  std::vector<std::string> takeLog();
  std::vector<std::string> log() const { return _installation.systemLog(); }
  /// At the service.
  std::string identifier() const;
  std::string accountFile() const;

  std::string printed, errors;

 private:
  Array children() const;
  void writeChildren(const Array& children);

  Installation _installation;
};

}  // namespace corvane
