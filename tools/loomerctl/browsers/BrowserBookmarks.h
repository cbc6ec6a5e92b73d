#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/edit/ImportPlan.h"

namespace corvane::loomerctl {

/// One folder or bookmark of a browser's file, in the form that an import takes.
using ImportedNode = loomer::ImportedNode;

/// What a browser's file says of its bookmarks that the truth has no place for.
enum class Extra {
  tag,
  keyword,
  description,
  separator,
  icon,
  date,   ///< of one entry, however many it has
  value,  ///< anything else that is noted with an entry
  entry,  ///< an entry that is neither folder nor bookmark nor separator, or a bookmark without an address
};
inline constexpr std::size_t kExtras = 8;

/// What an import leaves out.
class LeftOut {
 public:
  /// One of what is left out.
  struct Item {
    Extra kind;
    std::uint32_t node;  ///< the node of which it is said, or the folder in which it lies
    std::string text;    ///< as the file says it; empty for a separator
  };

  /// Counts one that nobody wants to see.
  void count(Extra kind) { ++_counts[static_cast<std::size_t>(kind)]; }
  /// Counts one and keeps it.
  void add(Extra kind, std::uint32_t node, std::string text = {}) {
    count(kind);
    _items.push_back({kind, node, std::move(text)});
  }
  std::size_t counted(Extra kind) const { return _counts[static_cast<std::size_t>(kind)]; }
  /// Those that were kept, in the order of the file.
  const std::vector<Item>& items() const { return _items; }

 private:
  std::array<std::size_t, kExtras> _counts{};
  std::vector<Item> _items;
};

/// What a browser's file holds.
struct BrowserBookmarks {
  std::vector<ImportedNode> nodes;  ///< in the file's order, parents before their contents
  LeftOut leftOut;
  std::size_t strays = 0;  ///< entries that no folder holds, put into kOtherBookmarks
};

/// The folders under the root for what a browser keeps outside of its toolbar and its menu. Browsers name
/// these in their user's language, if they name them at all; a name of its own brings those of all browsers
/// together.
inline constexpr const char* kOtherBookmarks = "Other Bookmarks";
inline constexpr const char* kMobileBookmarks = "Mobile Bookmarks";

/// The text with U+FFFD in the place of each byte of zero.
std::string withoutZeros(std::string_view text);

/// Counts the tags that a text lists, separated by commas, and keeps them as said of `node`.
void addTags(LeftOut& leftOut, std::uint32_t node, std::string_view list);

}  // namespace corvane::loomerctl
