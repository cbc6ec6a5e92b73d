// Whatever rows there are, with whatever parents: each comes into the tree once, or is told of.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <utility>

#include "fuzz/RequireTree.h"
#include "tools/loomerctl/browsers/FirefoxRoots.h"
#include "tools/loomerctl/browsers/PlacesDatabase.h"

namespace {

constexpr std::size_t kRowSize = 5;
constexpr std::array kGuids = {
    corvane::loomerctl::kFirefoxRoots[0].guid, corvane::loomerctl::kFirefoxRoots[1].guid,
    corvane::loomerctl::kFirefoxRoots[2].guid, corvane::loomerctl::kFirefoxRoots[3].guid,
    corvane::loomerctl::kFirefoxRoots[4].guid};

// A row out of a few bytes: its number, its parent's, its position, its type and the identifier of a root.
corvane::loomerctl::PlacesRow rowOf(const std::uint8_t* bytes, std::size_t index) {
  corvane::loomerctl::PlacesRow row;
  row.id = bytes[0];
  row.parent = bytes[1];
  row.position = bytes[2];
  row.type = bytes[3] % 5;
  row.place = bytes[3] / 5;
  if (bytes[4] < kGuids.size()) row.guid = kGuids[bytes[4]];
  row.title = "row " + std::to_string(index);
  if (row.type == 1) row.url = "http://x/";
  return row;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  loomerctl::PlacesContents contents;
  contents.rows.resize(1);
  contents.rows[0].id = 1;
  contents.rows[0].type = 2;
  contents.rows[0].guid = loomerctl::kFirefoxTop.guid;
  bool hasRoots = false;
  for (std::size_t at = 0; at + kRowSize <= size; at += kRowSize) {
    contents.rows.push_back(rowOf(data + at, at));
    hasRoots = hasRoots || !contents.rows.back().guid.empty();
  }
  const std::size_t rows = contents.rows.size() - 1;
  const auto tree = loomerctl::treeOfPlaces(std::move(contents));
  requireTree(tree);
  std::unordered_set<std::string> titles;
  std::size_t nodes = 0;
  for (const auto& node : tree.nodes) {
    if (!node.title.starts_with("row ")) continue;
    require(titles.insert(node.title).second, "no row comes twice");
    ++nodes;
  }
  using loomerctl::Extra;
  const std::size_t told = tree.leftOut.counted(Extra::separator) + tree.leftOut.counted(Extra::entry);
  require(hasRoots || nodes + told == rows, "no row is lost");
  return 0;
}
