// Bookmarks files are read whatever they hold, unless they are no text of their character set, and what was
// read survives being written and read again.

#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/ForeignFile.h"
#include "tools/loomerctl/HtmlCharacterSet.h"
#include "tools/loomerctl/HtmlText.h"
#include "tools/loomerctl/Invocation.h"

namespace {

using corvane::require;
using corvane::loomerctl::ImportedNode;

// The nodes as a file. They are in the order of the file, so that a folder ends where a node of another one
// follows.
std::string fileOf(const std::vector<ImportedNode>& nodes) {
  using namespace corvane::loomerctl;
  std::string file = htmlHead();
  std::vector<std::uint32_t> open;
  const auto closeUpTo = [&](std::uint32_t parent) {
    while (!open.empty() && open.back() != parent) {
      open.pop_back();
      file += htmlFolderEnd(open.size());
    }
  };
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    closeUpTo(nodes[i].parent);
    if (nodes[i].folder) {
      file += htmlFolder(nodes[i], open.size(), std::nullopt, std::nullopt);
      open.push_back(static_cast<std::uint32_t>(i));
    } else {
      file += htmlBookmark(nodes[i], open.size(), std::nullopt, std::nullopt);
    }
  }
  closeUpTo(ImportedNode::kRoot);
  return file + htmlTail();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static FakePlatform platform;  // what is wrong is said in its language
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  loomerctl::formOf(bytes);
  loomerctl::foreignKind(bytes, "file");
  std::string html;
  try {
    html = loomerctl::htmlAsUtf8(bytes, "file");
  } catch (const loomerctl::Refused&) {
    return 0;
  }
  require(isValidUtf8(html), "what is decoded is UTF-8");
  const auto nodes = loomerctl::parseBookmarksHtml(html).nodes;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const ImportedNode& node = nodes[i];
    const bool inRoot = node.parent == ImportedNode::kRoot;
    require(inRoot || (node.parent < i && nodes[node.parent].folder), "parents are folders and come first");
    require(isValidUtf8(node.title) && isValidUtf8(node.url), "texts are UTF-8");
  }
  const auto again = loomerctl::parseBookmarksHtml(fileOf(nodes)).nodes;
  require(again.size() == nodes.size(), "as many nodes come back");
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    require(again[i].folder == nodes[i].folder && again[i].parent == nodes[i].parent, "the tree comes back");
    const std::string& title = nodes[i].title;
    const bool hasLineEnd =
        title.find_first_of("\n\r\f") != std::string::npos;  // which is written as a blank
    require(hasLineEnd || again[i].title == title, "titles come back");
    require(corvane::whiteSpaceCollapsed(again[i].title) == corvane::whiteSpaceCollapsed(title),
            "titles are shown alike");
    require(again[i].url == nodes[i].url, "addresses come back");
    require(again[i].toolbar == nodes[i].toolbar && again[i].tabGroup == nodes[i].tabGroup,
            "the marks come back");
  }
  return 0;
}
