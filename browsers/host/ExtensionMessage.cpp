#include "browsers/host/ExtensionMessage.h"

#include <utility>

#include "browsers/host/Json.h"
#include "browsers/host/MessageProblem.h"

namespace corvane::browsers {

namespace {

BrowserNode readNode(const JsonValue& value) {
  if (!value.IsObject()) throw MessageProblem("A node of the message is no JSON object.");
  BrowserNode node;
  node.id = textIn(value, "id");
  node.parent = textIn(value, "parent");
  node.title = textIn(value, "title");
  node.added = numberIn(value, "added");
  node.syncing = truthIn(value, "syncing");
  const std::string kind = textIn(value, "kind");
  if (kind == "root") {
    const std::string root = textIn(value, "root");
    node.root = rootKindNamed(root);
    if (!node.root) throw MessageProblem("The message has a root of the unknown kind \"" + root + "\".");
    return node;
  }
  const auto known = nodeKindNamed(kind);
  if (!known) throw MessageProblem("The message has a node of the unknown kind \"" + kind + "\".");
  node.kind = *known;
  if (node.kind == NodeKind::bookmark) node.url = textIn(value, "url");
  return node;
}

Hello readHello(const JsonValue& message) {
  return {.protocol = numberIn(message, "protocol"),
          .token = textIn(message, "token"),
          .browser = textIn(message, "browser"),
          .profile = textIn(message, "profile"),
          .run = textIn(message, "run"),
          .generation = numberIn(message, "generation")};
}

PlacedNode readPlacedNode(const JsonValue& value) {
  PlacedNode placed{readNode(value), 0};
  const std::int64_t index = numberIn(value, "index");
  if (index < 0) throw MessageProblem("The message's \"index\" is negative.");
  placed.index = static_cast<std::size_t>(index);
  if (placed.node.id.empty() || placed.node.root || placed.node.parent.empty()) {
    throw MessageProblem("The message's \"node\" is none that a request can have made or changed.");
  }
  return placed;
}

Answer readAnswer(const JsonValue& message) {
  Answer answer;
  answer.id = numberIn(message, "id");
  answer.more = truthIn(message, "more");
  answer.removed = truthIn(message, "removed");
  answer.missing = truthIn(message, "missing");
  if (memberNamed(message, "error")) answer.error = textIn(message, "error");
  if (const JsonValue* const node = memberNamed(message, "node")) answer.node = readPlacedNode(*node);
  const JsonValue* const nodes = memberNamed(message, "nodes");
  if (!nodes) return answer;
  if (!nodes->IsArray()) throw MessageProblem("The message's \"nodes\" is no list.");
  answer.nodes.reserve(nodes->Size());
  for (const JsonValue& each : nodes->GetArray()) answer.nodes.push_back(readNode(each));
  return answer;
}

}  // namespace

ExtensionMessage readExtensionMessage(std::string text) {
  const JsonDocument message = parseMessage(std::move(text));
  const std::string type = textIn(message, "type");
  if (type == "hello") return readHello(message);
  if (type == "answer") return readAnswer(message);
  if (type == "changed") return Changed{};
  if (type == "syncNow") return SyncNow{};
  if (type == "pause") return Pause{truthIn(message, "paused")};
  if (type == "stop") return Stop{};
  if (type == "status") return StatusWanted{};
  return UnknownMessage{};
}

}  // namespace corvane::browsers
