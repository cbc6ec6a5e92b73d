#pragma once

#include <cstddef>
#include <string>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "fuzz/Require.h"
#include "tools/loomerctl/browsers/BrowserBookmarks.h"

namespace corvane {

/// What every reader of browsers' files keeps.
inline void requireTree(const loomerctl::BrowserBookmarks& file) {
  const auto isText = [](const std::string& text) {
    return isValidUtf8(text) && text.find('\0') == std::string::npos;
  };
  for (std::size_t i = 0; i < file.nodes.size(); ++i) {
    const loomerctl::ImportedNode& node = file.nodes[i];
    const bool inRoot = node.parent == loomerctl::ImportedNode::kRoot;
    require(inRoot || (node.parent < i && file.nodes[node.parent].folder),
            "parents are folders and come first");
    require(isText(node.title) && isText(node.url), "texts are UTF-8");
    require(node.folder == node.url.empty(), "bookmarks have an address");
  }
  for (const auto& item : file.leftOut.items()) {
    require(item.node == loomerctl::ImportedNode::kRoot || item.node < file.nodes.size(),
            "what is left out has a node");
    require(isValidUtf8(item.text), "what is left out is UTF-8");
  }
}

}  // namespace corvane
