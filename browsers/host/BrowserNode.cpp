#include "browsers/host/BrowserNode.h"

namespace corvane::browsers {

namespace {

constexpr std::array kNodeKinds = {NodeKind::folder, NodeKind::bookmark, NodeKind::separator};

template <typename Kinds>
auto kindNamed(std::string_view name, const Kinds& kinds) -> std::optional<typename Kinds::value_type> {
  for (const auto kind : kinds) {
    if (nameOf(kind) == name) return kind;
  }
  return std::nullopt;
}

}  // namespace

std::string_view nameOf(NodeKind kind) {
  switch (kind) {
    case NodeKind::folder:
      return "folder";
    case NodeKind::bookmark:
      return "bookmark";
    case NodeKind::separator:
      break;
  }
  return "separator";
}

std::string_view nameOf(RootKind root) {
  switch (root) {
    case RootKind::bar:
      return "bar";
    case RootKind::menu:
      return "menu";
    case RootKind::other:
      return "other";
    case RootKind::mobile:
      break;
  }
  return "mobile";
}

std::optional<NodeKind> nodeKindNamed(std::string_view name) { return kindNamed(name, kNodeKinds); }
std::optional<RootKind> rootKindNamed(std::string_view name) { return kindNamed(name, kRootKinds); }

}  // namespace corvane::browsers
