#include <string>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "bench/Sizes.h"

// Property lists of so many entries, in the shape of a bookmarks file.

namespace corvane::bench {
namespace {

Value entries(std::int64_t count) {
  Array list;
  for (std::int64_t i = 0; i < count; ++i) {
    const std::string number = std::to_string(i);
    list.append(Dictionary{{"WebBookmarkType", "WebBookmarkTypeLeaf"},
                           {"WebBookmarkUUID", String("0F8FAD5B-D9CB-469F-A165-" + number)},
                           {"URLString", String("http://example.com/" + number)},
                           {"URIDictionary", Dictionary{{"title", String("Title " + number)}}}});
  }
  return Dictionary{{"WebBookmarkFileVersion", 1}, {"Children", std::move(list)}};
}

using Write = std::string (*)(const Value&);

void read(benchmark::State& state, Write form) {
  const std::string bytes = form(entries(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(readPropertyList(bytes));
  countItems(state);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}

void write(benchmark::State& state, Write form) {
  const Value value = entries(state.range(0));
  std::size_t size = 0;
  for (auto _ : state) size = form(value).size();
  countItems(state);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

BENCHMARK_CAPTURE(read, binary, writeBinaryPropertyList)->Apply(sizes);
BENCHMARK_CAPTURE(read, xml, writeXmlPropertyList)->Apply(sizes);
BENCHMARK_CAPTURE(write, binary, writeBinaryPropertyList)->Apply(sizes);
BENCHMARK_CAPTURE(write, xml, writeXmlPropertyList)->Apply(sizes);

}  // namespace
}  // namespace corvane::bench
