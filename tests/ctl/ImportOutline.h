#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/kit/TreeText.h"
#include "tools/loomerctl/browsers/BrowserBookmarks.h"

namespace corvane {

/// The nodes in the notation of trees, called by their titles; the toolbar's folder is the special one.
inline std::string outline(const std::vector<loomerctl::ImportedNode>& nodes) {
  std::map<std::uint32_t, std::vector<std::uint32_t>> children;
  for (std::uint32_t i = 0; i < nodes.size(); ++i) children[nodes[i].parent].push_back(i);
  const auto node = [&](std::uint32_t at) -> kit::TreeNode {
    const loomerctl::ImportedNode& read = nodes[at];
    return {.label = read.title,
            .folder = read.folder,
            .title = String(read.title),
            .url = read.folder ? String() : String(read.url),
            .tabGroup = read.tabGroup,
            .special = read.toolbar};
  };
  return kit::printTree(kit::treeBelow(
      loomerctl::ImportedNode::kRoot, [&](std::uint32_t folder) { return children[folder]; }, node));
}

/// What is left out: a letter for each item's kind, the title of its node and its text; then how many icons
/// and dates there are. "t(Daily:news) s(News:) icons=1 dates=2".
inline std::string leftOutOutline(const loomerctl::BrowserBookmarks& file) {
  using loomerctl::Extra;
  std::string text;
  for (const auto& item : file.leftOut.items()) {
    const bool inRoot = item.node == loomerctl::ImportedNode::kRoot;
    text += "tkdsIDve"[static_cast<std::size_t>(item.kind)];
    text += '(' + (inRoot ? "" : file.nodes[item.node].title) + ':' + item.text + ") ";
  }
  return text + "icons=" + std::to_string(file.leftOut.counted(Extra::icon)) +
         " dates=" + std::to_string(file.leftOut.counted(Extra::date));
}

}  // namespace corvane
