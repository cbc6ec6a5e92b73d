#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::browsers {

enum class NodeKind : std::uint8_t { folder, bookmark, separator };

/// The folders in which a browser keeps all others.
enum class RootKind : std::uint8_t { bar, menu, other, mobile };

inline constexpr std::array kRootKinds = {RootKind::bar, RootKind::menu, RootKind::other, RootKind::mobile};

/// As messages and snapshots name them.
std::string_view nameOf(NodeKind kind);
std::string_view nameOf(RootKind root);
/// Nothing for another name.
std::optional<NodeKind> nodeKindNamed(std::string_view name);
std::optional<RootKind> rootKindNamed(std::string_view name);

/// A node of the browser's tree as the browser gives it.
struct BrowserNode {
  std::string id = {};      ///< the browser's; Chromium gives one away again after a crash
  std::string parent = {};  ///< empty for roots
  NodeKind kind = NodeKind::folder;
  std::optional<RootKind> root = {};
  std::string title = {};
  std::string url = {};    ///< of bookmarks
  std::int64_t added = 0;  ///< in milliseconds since 1970, by the browser's clock
  bool syncing = false;    ///< the browser's own account keeps this root in step
};

}  // namespace corvane::browsers
