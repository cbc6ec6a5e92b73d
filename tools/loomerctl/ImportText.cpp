#include "tools/loomerctl/ImportText.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {

// The folders on the way to a node, the root first. Of a deep one the nearest alone: as many lines as there
// are nodes, each as long as the way, would be the square of them.
std::string folderText(const std::vector<ImportedNode>& nodes, std::uint32_t folder) {
  constexpr int kShownFolders = 8;
  std::string path = "/";
  for (int shown = 0; folder != ImportedNode::kRoot; ++shown) {
    if (shown == kShownFolders) return "…" + path;
    path = '/' + printable(nodes[folder].title) + path;
    folder = nodes[folder].parent;
  }
  return path;
}

// The node with its folders; a folder ends with a stroke.
std::string pathText(const std::vector<ImportedNode>& nodes, std::uint32_t at) {
  if (at == ImportedNode::kRoot || nodes[at].folder) return folderText(nodes, at);
  return folderText(nodes, nodes[at].parent) + printable(nodes[at].title);
}

std::string itemText(const std::vector<ImportedNode>& nodes, const LeftOut::Item& item) {
  const std::string text = printable(item.text);
  const std::string path = pathText(nodes, item.node);
  switch (item.kind) {
    case Extra::tag:
      return tr("left out: the tag \"%1\" of %2", text, path);
    case Extra::keyword:
      return tr("left out: the keyword \"%1\" of %2", text, path);
    case Extra::description:
      return tr("left out: the description \"%1\" of %2", text, path);
    case Extra::separator:
      return tr("left out: a separator in %1", path);
    case Extra::entry:
      return tr("left out: the entry \"%1\" in %2", text, path);
    case Extra::value:
    case Extra::icon:
    case Extra::date:
      break;
  }
  return tr("left out: the value \"%1\" of %2", text, path);
}

std::string extraCount(Extra kind, std::size_t count) {
  switch (kind) {
    case Extra::tag:
      return counted(count, "%1 tag", "%1 tags");
    case Extra::keyword:
      return counted(count, "%1 keyword", "%1 keywords");
    case Extra::description:
      return counted(count, "%1 description", "%1 descriptions");
    case Extra::separator:
      return counted(count, "%1 separator", "%1 separators");
    case Extra::icon:
      return counted(count, "%1 icon", "%1 icons");
    case Extra::date:
      return counted(count, "%1 date", "%1 dates");
    case Extra::value:
      break;
    case Extra::entry:
      return counted(count, "%1 other entry", "%1 other entries");
  }
  return counted(count, "%1 other value", "%1 other values");
}

}  // namespace

void printImport(Output& out, const BrowserBookmarks& file, const loomer::ImportPlan& plan) {
  for (const std::uint32_t at : plan.added) {
    const ImportedNode& node = file.nodes[at];
    out.write("  + ", Style::added);
    out.write(pathText(file.nodes, at) + (node.folder ? "" : "  " + printable(node.url)) + '\n');
  }
  for (const LeftOut::Item& item : file.leftOut.items()) {
    out.write("  " + itemText(file.nodes, item) + '\n', Style::faint);
  }
}

void printLeftOut(Output& out, const BrowserBookmarks& file) {
  std::string counts;
  for (std::size_t i = 0; i < kExtras; ++i) {
    const auto kind = static_cast<Extra>(i);
    if (file.leftOut.counted(kind) == 0) continue;
    counts += (counts.empty() ? "" : ", ") + extraCount(kind, file.leftOut.counted(kind));
  }
  if (!counts.empty()) out.write(tr("Left out: %1.", counts) + '\n');
  if (file.strays == 0) return;
  out.write(counted(file.strays, "%1 entry lies in no folder of the file, and in \"%2\" here.",
                    "%1 entries lie in no folder of the file, and in \"%2\" here.", kOtherBookmarks) +
            '\n');
}

}  // namespace corvane::loomerctl
