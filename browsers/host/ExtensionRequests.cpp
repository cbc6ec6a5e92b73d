#include "browsers/host/ExtensionRequests.h"

#include <utility>

#include "browsers/host/MessageProblem.h"

namespace corvane::browsers {

namespace {

constexpr std::string_view kDifferent = "different";

void expect(JsonMessage& message, const BrowserNode& node) {
  message.begin("expect");
  message.member("kind", nameOf(node.kind));
  message.member("title", node.title);
  if (node.kind == NodeKind::bookmark) message.member("url", node.url);
  message.end();
}

ChangeAnswer outcomeOf(Answer answered, bool removes) {
  if (answered.error) {
    const bool isDifferent = answered.missing || *answered.error == kDifferent;
    return {isDifferent ? ChangeAnswer::Outcome::different : ChangeAnswer::Outcome::refused,
            std::move(answered.node)};
  }
  if (removes ? !answered.removed : !answered.node) {
    throw MessageProblem("The extension's answer says neither what was done nor why not.");
  }
  return {ChangeAnswer::Outcome::done, std::move(answered.node)};
}

}  // namespace

Answer ExtensionRequests::answer() {
  while (auto text = _channel.receive()) {
    ExtensionMessage message = readExtensionMessage(*std::move(text));
    auto* const answer = std::get_if<Answer>(&message);
    if (!answer) {
      _other(message);
    } else if (answer->id == _lastId) {
      return std::move(*answer);
    } else {
      throw MessageProblem("The extension answers a request that it was not asked.");
    }
  }
  throw ExtensionGone();
}

BrowserTree ExtensionRequests::read() {
  _channel.send(JsonMessage("read", ++_lastId).text());
  BrowserTree tree;
  while (true) {
    Answer part = answer();
    if (part.error) throw MessageProblem("The extension cannot read the browser's bookmarks: " + *part.error);
    const bool isEmpty = part.nodes.empty();
    for (BrowserNode& node : part.nodes) tree.add(std::move(node));
    if (!part.more) return tree;
    if (isEmpty)
      throw MessageProblem("The extension gives a part of the bookmarks in which there is nothing.");
  }
}

bool ExtensionRequests::send(JsonMessage& request) {
  const std::string text = request.text();
  if (text.size() > kLargestMessage) return false;
  _channel.send(text);
  return true;
}

ChangeAnswer ExtensionRequests::ask(JsonMessage& request, bool removes) {
  return send(request) ? outcomeOf(answer(), removes) : ChangeAnswer{};
}

void ExtensionRequests::create(const std::string& parent, std::size_t index, std::span<const NewNode> nodes,
                               const std::function<void(const ChangeAnswer&)>& taker) {
  JsonMessage message("create", ++_lastId);
  message.member("parent", parent);
  message.member("index", index);
  message.beginArray("nodes");
  for (const NewNode& each : nodes) {
    message.beginObject();
    message.member("title", each.title);
    if (each.url) message.member("url", *each.url);
    message.end();
  }
  message.endArray();
  const bool isSent = send(message);
  for (std::size_t left = nodes.size(); left > 0; --left) {
    if (!isSent) {
      taker({});
      continue;
    }
    Answer answered = answer();
    if (answered.more != (left > 1)) {
      throw MessageProblem("The extension answers for another number of nodes than it was to make.");
    }
    taker(outcomeOf(std::move(answered), false));
  }
}

ChangeAnswer ExtensionRequests::update(const BrowserNode& node, const std::optional<std::string>& title,
                                       const std::optional<std::string>& url) {
  JsonMessage message("update", ++_lastId);
  message.member("node", node.id);
  if (title) message.member("title", *title);
  if (url) message.member("url", *url);
  expect(message, node);
  return ask(message, false);
}

ChangeAnswer ExtensionRequests::move(const BrowserNode& node, const std::string& parent, std::size_t index) {
  JsonMessage message("move", ++_lastId);
  message.member("node", node.id);
  message.member("parent", parent);
  message.member("index", index);
  message.begin("expect");
  message.member("parent", node.parent);
  message.end();
  return ask(message, false);
}

ChangeAnswer ExtensionRequests::remove(const BrowserNode& node) {
  JsonMessage message("remove", ++_lastId);
  message.member("node", node.id);
  expect(message, node);
  return ask(message, true);
}

}  // namespace corvane::browsers
