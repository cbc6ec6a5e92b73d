#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

namespace corvane::loomer {

MergeResult merge(const MergeInput& input) {
  MergeResult result;
  Trees trees = identify(input);
  settleStructure(trees);
  mergeContents(trees);
  mergeOrders(trees);
  changeTruth(trees, result);
  handOut(trees, result);
  result.losses = std::move(trees.losses);
  return result;
}

}  // namespace corvane::loomer
