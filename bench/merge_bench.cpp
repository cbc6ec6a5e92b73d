#include <algorithm>
#include <random>
#include <string>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "bench/Sizes.h"

// Whole merges of a client with the truth.

namespace corvane::bench {
namespace {

using namespace loomer;

// A client in step with a truth of so many records, every `perFolder` bookmarks in a folder of their own.
MergeInput inStep(std::int64_t records, std::int64_t perFolder) {
  MergeInput input;
  input.client.emplace();
  RecordId folder = kRoot;
  for (RecordId id = 1; id <= records; ++id) {
    const bool isFolder = (id - 1) % (perFolder + 1) == 0;
    const RecordId parent = isFolder ? kRoot : folder;
    if (isFolder) folder = id;
    const Entity entity = isFolder ? Entity::folder : Entity::bookmark;
    const auto position = static_cast<std::int32_t>(id);
    const String localId("client-" + std::to_string(id));
    Content content;
    content.name = String("Title " + std::to_string(id));
    if (!isFolder) content.url = String("http://example.com/" + std::to_string(id));
    input.truth.push_back(
        {.id = id, .entity = entity, .parent = parent, .place = id << 20, .content = content, .revision = 1});
    BaseRecord base;
    base.localId = localId;
    base.record = id;
    base.entity = entity;
    base.parent = parent;
    base.position = position;
    base.content = content;
    const String above = parent == kRoot ? String() : String("client-" + std::to_string(parent));
    input.client->push_back({localId, above, entity, position, content});
    input.base.push_back(std::move(base));
  }
  input.nextRecord = records + 1;
  input.revision = 2;
  return input;
}

void measure(benchmark::State& state, const MergeInput& input) {
  for (auto _ : state) benchmark::DoNotOptimize(merge(input));
  countItems(state);
}

void mergeFirstSessionIntoAnEmptyTruth(benchmark::State& state) {
  MergeInput input = inStep(state.range(0), 20);
  input.truth.clear();
  input.base.clear();
  input.refresh = true;
  measure(state, input);
}
BENCHMARK(mergeFirstSessionIntoAnEmptyTruth)->Apply(sizes);

// Everything is matched by match key.
void mergeFirstSessionOfAnEqualTree(benchmark::State& state) {
  MergeInput input = inStep(state.range(0), 20);
  input.base.clear();
  input.refresh = true;
  measure(state, input);
}
BENCHMARK(mergeFirstSessionOfAnEqualTree)->Apply(sizes);

// In one folder, where titles differ from the truth's: matched by address.
void mergeFirstSessionByAddress(benchmark::State& state) {
  MergeInput input = inStep(state.range(0), state.range(0));
  for (ClientRecord& record : *input.client) {
    if (record.entity == Entity::bookmark) record.content.name = String("another title");
  }
  input.base.clear();
  input.refresh = true;
  measure(state, input);
}
BENCHMARK(mergeFirstSessionByAddress)->Apply(sizes);

void mergeOneChange(benchmark::State& state) {
  MergeInput input = inStep(state.range(0), 20);
  input.client->back().content.name = String("renamed");
  measure(state, input);
}
BENCHMARK(mergeOneChange)->Apply(sizes);

// One folder, shuffled by the client.
void mergeReorder(benchmark::State& state) {
  MergeInput input = inStep(state.range(0), state.range(0));
  std::vector<std::int32_t> positions;
  for (const ClientRecord& record : *input.client) positions.push_back(record.position);
  std::shuffle(positions.begin(), positions.end(), std::mt19937(1));
  for (std::size_t i = 0; i < positions.size(); ++i) (*input.client)[i].position = positions[i];
  measure(state, input);
}
BENCHMARK(mergeReorder)->Apply(sizes);

}  // namespace
}  // namespace corvane::bench
