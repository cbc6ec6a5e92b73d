#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/records/Records.h"

namespace corvane::loomerctl {

/// One folder or bookmark that a client's file and the truth do not have alike. One side at least is there.
struct FileDifference {
  const loomer::TruthRecord* agreed = nullptr;
  const loomer::ClientRecord* inFile = nullptr;
  bool saysOther = false;      ///< title, address or kind of folder
  bool liesElsewhere = false;  ///< in another folder
  bool isReordered = false;    ///< among the siblings that both sides have in that folder
};

/// What a client's file holds that the truth does not, and the other way round. What lies where is compared
/// as the client's next session would: entries that it knows by their base, others by folder, title and
/// address. The file's entries come in its order, then what the truth has alone, by ascending record. The
/// sides must outlive the answer.
std::vector<FileDifference> differencesOf(const std::vector<loomer::TruthRecord>& truth,
                                          const std::vector<loomer::BaseRecord>& base,
                                          const std::vector<loomer::ClientRecord>& file);

}  // namespace corvane::loomerctl
