#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/system/ServiceScope.h"

namespace corvane {

/// What a client that waits between its sessions goes by: none of it can have changed where the next session
/// would do what the last one did, unless the client itself has changed something.
struct LoomerNews {
  std::int64_t revision = 0;  ///< of the truth: another one whenever a record of it has changed
  std::int64_t sessions = 0;  ///< that succeeded, of all clients
  bool isBehind = true;       ///< the client has not had a session since the truth last changed
  bool isPending = false;     ///< somebody has decided that its next session resets or restores it
  bool isApproved = false;    ///< somebody has approved what the guard had refused to it

  bool operator==(const LoomerNews&) const = default;
};

/// The sync engine as its clients meet it: the registry of clients, and the maker of sessions.
class LoomerManager {
 public:
  virtual ~LoomerManager() = default;

  /// The current engine: the one that a LoomerManagerScope made current, else the embedded engine of the
  /// user's store, made at the first call. Raises PlatformException when the store cannot be opened (damaged,
  /// newer, not permitted).
  static LoomerManager& sharedManager();
  /// As `sharedManager`, for who only asks: null where the user has no store yet, and none is made.
  static LoomerManager* sharedManagerOfExistingStore();

  /// Where the user's store stands or is to stand: the file to be watched for what others do, in the
  /// directory in which a client may keep what is its own.
  static std::string storePath();

  /// The registered client, owned by the manager and valid until it is unregistered; null when there is none.
  virtual LoomerClient* clientWithIdentifier(const String& identifier) = 0;
  /// `registerClientWithIdentifier:descriptionFilePath:`: registers the client that the property list
  /// describes, or answers the existing registration with its description renewed. Null, with a line in the
  /// diagnostic log that names path and cause, when the description cannot be used: saying so is the
  /// caller's, who may have to keep silent.
  virtual LoomerClient* registerClientWithIdentifier(const String& identifier,
                                                     const std::string& descriptionFilePath) = 0;
  /// `registerClientWithIdentifier:descriptionBundleId:descriptionBundleRelativePath:`: as above, the
  /// description named by a bundle's identifier and a path relative to that bundle; the line is one in the
  /// system log.
  virtual LoomerClient* registerClientWithIdentifier(const String& identifier,
                                                     const String& descriptionBundleId,
                                                     const std::string& descriptionBundleRelativePath) = 0;
  /// Removes the client's base, values and pending reset, never the truth. `client` is gone afterwards.
  virtual void unregisterClient(LoomerClient& client) = 0;

  /// `newsForClient:`, registered or not. Raises PlatformException when the store cannot be read.
  virtual LoomerNews newsForClient(const String& identifier) = 0;

  virtual std::unique_ptr<LoomerSessionDriver> sessionDriverWithDataSource(
      LoomerSessionDriverDataSource& dataSource) = 0;
};

/// Makes an engine current.
using LoomerManagerScope = ServiceScope<LoomerManager>;

}  // namespace corvane
