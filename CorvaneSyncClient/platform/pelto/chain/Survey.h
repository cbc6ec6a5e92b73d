#pragma once

#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/Link.h"

namespace corvane::pelto::chain {

/// What a computer found under the name of a commit.
struct Found {
  enum class State {
    absent,
    good,     ///< `link` says what
    damaged,  ///< no commit of this account under that name
  };
  State state = State::absent;
  Link link;
  std::string hash;  ///< of the bytes, where there are any

  friend bool operator==(const Found&, const Found&) = default;
};

/// What was read of the commits that a listing names, by name.
using Readings = std::map<std::string, Found>;

/// Which chain the commits at the place make, as far as they are read.
struct Survey {
  std::vector<std::string> unread;  ///< to be read before it is known; then `path` says nothing
  std::vector<Link> path;  ///< from its last checkpoint, or from the first commit; empty for no chain
};

/// The chain among the commits that a listing of the place names. Every computer comes to the same answer,
/// whatever it has seen before.
///
/// After each commit comes the first good one of its slots. A chain is complete when it goes on without a gap
/// from the account's first commit, or from a checkpoint whose snapshot is whole. The last commit of a
/// generation is a chain by itself: nothing that follows counts, and nothing before it is needed. More than
/// one chain there can be when the place was put back to an earlier state: a request from before may be
/// carried out after that. The complete chain with the highest number counts; of two, the one whose name
/// comes first.
Survey survey(const std::vector<std::string>& listed, const Readings& readings);

}  // namespace corvane::pelto::chain
