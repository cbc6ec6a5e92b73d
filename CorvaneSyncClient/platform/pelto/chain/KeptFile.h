#pragma once

#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/ChainObjects.h"
#include "CorvaneSyncClient/platform/pelto/chain/Decisions.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::pelto::chain {

/// What a computer keeps of an account's chain from one exchange to the next.
struct KeptContents {
  Kept kept;
  std::string commit;                ///< the bytes of the undecided push
  std::vector<NamedBytes> segments;  ///< that it names
  std::map<std::string, TaggedLink> tags;
};

/// The file in which that stands: a property list, private to the user.
class KeptFile {
 public:
  /// `chain` says which chain, at which place: what was kept of another one is none.
  KeptFile(std::string path, std::string chain);

  /// Nothing kept when there is no file, and when it cannot be read, which a line in the system log says:
  /// then there are only more requests.
  KeptContents read() const;
  /// Durable when it returns. Raises PlaceException.
  void write(const KeptContents& contents) const;

 private:
  std::string _path;
  std::string _chain;
};

}  // namespace corvane::pelto::chain
