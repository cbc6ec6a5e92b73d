#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "browsers/host/BrowserNode.h"

namespace corvane::browsers {

// What the extension says; docs/browsers.md tells it in full.

struct Hello {
  std::int64_t protocol = 0;
  std::string token = {};    ///< the profile's
  std::string browser = {};  ///< "chromium" or "firefox"
  std::string profile = {};  ///< its name for people; may be empty
  std::string run = {};      ///< another one at each start of the browser
  std::int64_t generation = 0;
};

struct Changed {};
struct SyncNow {};
struct Pause {
  bool paused = false;
};
struct Stop {};
struct StatusWanted {};

/// A node as it is after a change, and its place among its siblings.
struct PlacedNode {
  BrowserNode node;
  std::size_t index = 0;
};

struct Answer {
  std::int64_t id = 0;
  std::vector<BrowserNode> nodes;  ///< of a read
  bool more = false;               ///< of a read, or of what makes several nodes: another one follows
  std::optional<PlacedNode> node;  ///< of a change
  bool removed = false;
  std::optional<std::string> error;
  bool missing = false;
};

/// A message of a type that this program does not know, to be left aside.
struct UnknownMessage {};

using ExtensionMessage =
    std::variant<UnknownMessage, Hello, Changed, SyncNow, Pause, Stop, StatusWanted, Answer>;

/// Reads one message's JSON. Raises MessageProblem, which says what is wrong and where.
ExtensionMessage readExtensionMessage(std::string text);

}  // namespace corvane::browsers
