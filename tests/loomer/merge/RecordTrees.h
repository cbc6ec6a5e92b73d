#pragma once

#include <functional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "tests/kit/TreeText.h"

namespace corvane::loomer::test {

/// A record, called `label`, as a node of a tree in the notation of tests.
kit::TreeNode nodeOf(const std::string& label, Entity entity, const Content& content);

/// The live records as text, each called by `labelOf`.
std::string printTruth(const std::vector<TruthRecord>& truth,
                       const std::function<std::string(const TruthRecord&)>& labelOf);
/// The same with every record called by its title.
std::string printTruth(const std::vector<TruthRecord>& truth);

}  // namespace corvane::loomer::test
