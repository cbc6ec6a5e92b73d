#include "tests/fakes/ScriptedBrowser.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/values/TypedUrl.h"

namespace corvane {

namespace {

using browsers::JsonMessage;
using browsers::JsonValue;
using browsers::NodeKind;
using browsers::RootKind;

constexpr std::int64_t kUntilDurable = 3000;  // milliseconds
constexpr std::size_t kLongestFirefoxTitle = 4096;
constexpr std::size_t kNodesOfMessage = 200;
constexpr std::size_t kTextOfMessage = 100'000;
constexpr std::size_t kLargestNode = 250 * 1024;

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// In whole characters.
std::string firstCharacters(const std::string& text, std::size_t count) {
  std::size_t seen = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!isContinuation(text[at]) && seen++ == count) return text.substr(0, at);
  }
  return text;
}

std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string withoutSpaces(const std::string& text) {
  std::string result;
  for (const char c : text) c == ' ' ? result += "%20" : result += c;
  return result;
}

// In lower case, and in ASCII (IDNA).
std::string hostAsKept(const std::string& host) {
  const std::string address = "http://" + lowerCase(host);
  const auto url = urlWithUserTypedString(address);
  return (url ? url->text.toString() : address).substr(std::string_view("http://").size());
}

// The port that an address of that scheme has without saying so.
std::string_view ownPort(const std::string& scheme) {
  if (scheme == "ftp") return "21";
  return scheme == "https" || scheme == "wss" ? "443" : "80";
}

// "host:port" of an address with a host; nothing for one that browsers refuse.
std::optional<std::string> authorityAsKept(const std::string& scheme, const std::string& authority) {
  const std::size_t colon = authority.rfind(':');
  const std::string host = authority.substr(0, colon);
  if (host.empty()) return std::nullopt;
  if (colon == std::string::npos) return hostAsKept(host);
  const std::string port = authority.substr(colon + 1);
  const bool isNumber =
      std::all_of(port.begin(), port.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  if (!isNumber || port.size() > 5 || std::atoi(port.c_str()) > 65535) return std::nullopt;
  return hostAsKept(host) + (port == ownPort(scheme) ? "" : ":" + port);
}

bool hasHost(const std::string& scheme) {
  return scheme == "http" || scheme == "https" || scheme == "ftp" || scheme == "ws" || scheme == "wss";
}

}  // namespace

ScriptedBrowser::ScriptedBrowser(Kind kind) : _kind(kind) {
  if (kind == Kind::chromium) {
    newId();  // of the root of roots
    makeRoot(RootKind::bar, newId(), "Bookmarks bar");
    makeRoot(RootKind::other, newId(), "Other bookmarks");
  } else {
    makeRoot(RootKind::bar, "toolbar_____", "Bookmarks Toolbar");
    makeRoot(RootKind::menu, "menu________", "Bookmarks Menu");
    makeRoot(RootKind::other, "unfiled_____", "Other Bookmarks");
    makeRoot(RootKind::mobile, "mobile______", "Mobile Bookmarks");
  }
  _unwritten.clear();
}

void ScriptedBrowser::makeRoot(RootKind root, const std::string& id, const std::string& title) {
  _state.nodes[id] = {{}, NodeKind::folder, root, title, {}, _now};
}

std::string ScriptedBrowser::makeMobileRoot() {
  if (_mobileRoot.empty()) _mobileRoot = newId();
  makeRoot(RootKind::mobile, _mobileRoot, "Mobile bookmarks");
  _unwritten.clear();
  return _mobileRoot;
}

void ScriptedBrowser::hideMobileRoot() {
  const bool isShown = _state.nodes.contains(_mobileRoot);
  if (isShown && childrenOf(_mobileRoot).empty()) erase(_mobileRoot);
}

void ScriptedBrowser::signOut() {
  isSyncedByAccount = false;
  for (const std::string& each : subtree(_mobileRoot)) {
    _ofAccount.nodes.insert(_state.nodes.extract(each));
    _ofAccount.children.insert(_state.children.extract(each));
  }
  edited();
}

void ScriptedBrowser::signIn() {
  isSyncedByAccount = true;
  _state.nodes.merge(_ofAccount.nodes);
  _state.children.merge(_ofAccount.children);
  edited();
}

std::string ScriptedBrowser::newId() {
  note([](State& state) { --state.lastId; });
  const std::string number = std::to_string(++_state.lastId);
  return _kind == Kind::chromium
             ? number
             : "guid" + std::string(8 - std::min<std::size_t>(8, number.size()), '0') + number;
}

std::string ScriptedBrowser::insert(Node node, std::size_t index) {
  node.added = ++_now;
  const std::string parent = node.parent;
  const std::string id = newId();
  _state.nodes[id] = std::move(node);
  note([id](State& state) { state.nodes.erase(id); });
  list(id, parent, index);
  return id;
}

void ScriptedBrowser::list(const std::string& id, const std::string& parent, std::size_t index) {
  _state.nodes.at(id).parent = parent;
  _state.children[parent].insert(index, id);
  note([id, parent](State& state) { state.children.at(parent).remove(id); });
}

void ScriptedBrowser::unlist(const std::string& id) {
  const std::string parent = _state.nodes.at(id).parent;
  browsers::SiblingList& siblings = _state.children.at(parent);
  const std::size_t index = siblings.indexOf(id);
  siblings.remove(id);
  note([id, parent, index](State& state) {
    state.nodes.at(id).parent = parent;
    state.children[parent].insert(index, id);
  });
}

// A node of which title or address are about to change.
ScriptedBrowser::Node& ScriptedBrowser::changeable(const std::string& id) {
  Node& node = _state.nodes.at(id);
  note([id, before = node](State& state) { state.nodes.at(id) = before; });
  return node;
}

// A node that is not listed, and in which nothing is.
void ScriptedBrowser::erase(const std::string& id) {
  note([id, before = _state.nodes.at(id)](State& state) { state.nodes[id] = before; });
  _state.children.erase(id);
  _state.nodes.erase(id);
}

// Firefox writes at once.
void ScriptedBrowser::note(Undo undo) {
  if (_kind == Kind::chromium) _unwritten.push_back({_now, std::move(undo)});
}

void ScriptedBrowser::edited() {
  _hasNews = true;
  if (_running && !std::exchange(_announced, true)) say("changed");
}

std::string ScriptedBrowser::titleAsKept(const std::string& title) const {
  if (_kind == Kind::firefox) return firstCharacters(title, kLongestFirefoxTitle);
  std::string kept = title;
  for (char& c : kept) {
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  }
  return kept;
}

std::optional<std::string> ScriptedBrowser::addressAsKept(const std::string& address) const {
  const std::size_t colon = address.find(':');
  if (colon == std::string::npos || colon == 0) return std::nullopt;
  const std::string scheme = lowerCase(address.substr(0, colon));
  if (!std::all_of(scheme.begin(), scheme.end(), [](unsigned char c) { return std::isalnum(c) != 0; }))
    return std::nullopt;
  const std::string rest = address.substr(colon + 1);
  if (!hasHost(scheme)) return scheme + ":" + rest;
  const std::size_t start = rest.find_first_not_of('/');
  if (start == std::string::npos) return std::nullopt;
  const std::size_t end = std::min(rest.find_first_of("/?#", start), rest.size());
  const auto authority = authorityAsKept(scheme, rest.substr(start, end - start));
  if (!authority) return std::nullopt;
  std::string path = withoutSpaces(rest.substr(end));
  if (!path.starts_with('/')) path.insert(0, "/");
  return scheme + "://" + *authority + path;
}

std::string ScriptedBrowser::add(const std::string& parent, NodeKind kind, const std::string& title,
                                 const std::string& url, std::size_t index) {
  const auto address = kind == NodeKind::bookmark ? addressAsKept(url) : std::string();
  if (!address) return {};
  const std::string id = insert(
      {.parent = parent, .kind = kind, .root = {}, .title = titleAsKept(title), .url = *address}, index);
  edited();
  return id;
}

void ScriptedBrowser::rename(const std::string& id, const std::string& title) {
  changeable(id).title = titleAsKept(title);
  edited();
}

void ScriptedBrowser::readdress(const std::string& id, const std::string& url) {
  const auto address = addressAsKept(url);
  if (!address) return;
  changeable(id).url = *address;
  edited();
}

void ScriptedBrowser::move(const std::string& id, const std::string& parent, std::size_t index) {
  const std::vector<std::string> below = subtree(id);
  if (std::find(below.begin(), below.end(), parent) != below.end()) return;
  unlist(id);
  list(id, parent, index);
  hideMobileRoot();
  edited();
}

void ScriptedBrowser::remove(const std::string& id) {
  const std::vector<std::string> below = subtree(id);
  for (auto each = below.rbegin(); each != below.rend(); ++each) {
    unlist(*each);
    erase(*each);
  }
  hideMobileRoot();
  edited();
}

void ScriptedBrowser::renewIds() {
  std::map<std::string, std::string> renewed;
  for (const auto& [id, node] : _state.nodes) renewed[id] = node.root ? id : newId();
  State state;
  state.lastId = _state.lastId;
  for (auto& [id, node] : _state.nodes) {
    Node& moved = state.nodes[renewed.at(id)] = node;
    if (!node.root) moved.parent = renewed.at(node.parent);
  }
  for (const auto& [folder, children] : _state.children) {
    if (!renewed.contains(folder)) continue;
    for (const std::string& child : children.ids())
      state.children[renewed.at(folder)].append(renewed.at(child));
  }
  note([before = _state](State& after) { after = before; });
  _state = std::move(state);
  edited();
}

void ScriptedBrowser::pass(std::int64_t milliseconds) {
  _now += milliseconds;
  while (!_unwritten.empty() && _unwritten.front().time + kUntilDurable <= _now) _unwritten.pop_front();
}

void ScriptedBrowser::start() {
  _running = true;
  ++_runs;
  connect();
}

void ScriptedBrowser::connect() {
  _messages.clear();
  _announced = false;
  JsonMessage hello("hello");
  hello.member("protocol", 1);
  hello.member("token", token);
  hello.member("browser", _kind == Kind::chromium ? "chromium" : "firefox");
  hello.member("version", "1.0");
  hello.member("extension", "1.0");
  hello.member("language", "en");
  hello.member("profile", "");
  hello.member("run", "run " + std::to_string(_runs));
  hello.member("generation", generation);
  _messages.push_back(hello.text());
  if (_paused) pause(true);
}

void ScriptedBrowser::quit() {
  _running = false;
  _unwritten.clear();
}

void ScriptedBrowser::kill() {
  _running = false;
  for (auto each = _unwritten.rbegin(); each != _unwritten.rend(); ++each) each->undo(_state);
  hideMobileRoot();
  _unwritten.clear();
}

void ScriptedBrowser::restore(const ScriptedBrowser& backup) {
  const std::int64_t time = _now;
  const std::int64_t runs = _runs;
  *this = backup;
  _now = time;
  _runs = runs;
}

void ScriptedBrowser::pause(bool paused) {
  _paused = paused;
  JsonMessage message("pause");
  message.member("paused", paused);
  _messages.push_back(message.text());
}

void ScriptedBrowser::say(const std::string& type) { _messages.push_back(JsonMessage(type).text()); }

std::optional<std::string> ScriptedBrowser::next() {
  if (_messages.empty()) return std::nullopt;
  std::string message = std::move(_messages.front());
  _messages.pop_front();
  return message;
}

void ScriptedBrowser::take(std::string_view text) {
  const auto message = browsers::parseMessage(std::string(text));
  const std::string type = browsers::textIn(message, "type");
  _taken[type] = text;
  if (type == "read") {
    ++_requests;
    answerRead(browsers::numberIn(message, "id"));
  } else if (type == "create") {
    ++_requests;
    answerCreate(message);
  } else if (type == "update" || type == "move" || type == "remove") {
    ++_requests;
    answerChange(message);
  } else if (type == "generation") {
    generation = browsers::numberIn(message, "generation");
  } else if (type == "token") {
    token = browsers::textIn(message, "token");
    generation = 0;
  }
}

std::string ScriptedBrowser::last(const std::string& type) const {
  const auto found = _taken.find(type);
  return found == _taken.end() ? std::string() : found->second;
}

void ScriptedBrowser::answerRead(std::int64_t id) {
  std::vector<std::string> all;
  for (const RootKind kind : browsers::kRootKinds) {
    if (const std::string root = this->root(kind); !root.empty()) {
      for (const std::string& each : subtree(root)) all.push_back(each);
    }
  }
  std::size_t at = 0;
  do {
    JsonMessage answer("answer", id);
    answer.beginArray("nodes");
    std::size_t text = 0;
    for (std::size_t count = 0; at < all.size() && count < kNodesOfMessage && text < kTextOfMessage;
         ++count) {
      const Node& node = _state.nodes.at(all[at]);
      const std::size_t size = node.title.size() + node.url.size();
      if (count > 0 && text + size > kTextOfMessage) break;
      text += size;
      answer.beginObject();
      writeNode(answer, all[at++]);
      answer.end();
    }
    answer.endArray();
    answer.member("more", at < all.size());
    _messages.push_back(answer.text());
  } while (at < all.size());
  _announced = false;
  _hasNews = false;
}

void ScriptedBrowser::writeNode(JsonMessage& message, const std::string& id) const {
  const Node& node = _state.nodes.at(id);
  const bool isTooLarge = node.title.size() + node.url.size() > kLargestNode;
  message.member("id", id);
  message.member("added", node.added);
  if (node.root) {
    message.member("kind", "root");
    message.member("root", browsers::nameOf(*node.root));
    if (_kind == Kind::chromium) message.member("syncing", isSyncedByAccount);
  } else {
    message.member("parent", node.parent);
    message.member("kind", browsers::nameOf(isTooLarge ? NodeKind::separator : node.kind));
  }
  message.member("title", isTooLarge ? std::string() : node.title);
  if (node.kind == NodeKind::bookmark && !isTooLarge) message.member("url", node.url);
}

// What keeps the request from being carried out because a node is not there, or is a root; empty for nothing.
std::string ScriptedBrowser::problemOf(const JsonValue& request) const {
  for (const char* const name : {"node", "parent"}) {
    const std::string id = browsers::textIn(request, name);
    if (!id.empty() && !_state.nodes.contains(id)) return "there is no node " + id;
  }
  return {};
}

bool ScriptedBrowser::fits(const JsonValue& request) const {
  const JsonValue* const expect = browsers::memberNamed(request, "expect");
  if (!expect) return true;
  const Node& node = _state.nodes.at(browsers::textIn(request, "node"));
  const auto agrees = [&](const char* name, std::string_view value) {
    return !browsers::memberNamed(*expect, name) || browsers::textIn(*expect, name) == value;
  };
  return agrees("kind", browsers::nameOf(node.kind)) && agrees("title", node.title) &&
         agrees("url", node.url) && agrees("parent", node.parent);
}

void ScriptedBrowser::answerCreate(const JsonValue& request) {
  const std::int64_t id = browsers::numberIn(request, "id");
  const std::string parent = browsers::textIn(request, "parent");
  auto index = static_cast<std::size_t>(browsers::numberIn(request, "index"));
  const JsonValue* const nodes = browsers::memberNamed(request, "nodes");
  if (!nodes || !nodes->IsArray()) return fail(id, "nothing is to be made", false);
  std::size_t left = nodes->Size();
  for (const JsonValue& each : nodes->GetArray()) {
    if (_killedAtNode > 0 && --_killedAtNode == 0) return kill();
    if (createOne(id, parent, each, index, --left > 0)) ++index;
  }
}

bool ScriptedBrowser::createOne(std::int64_t id, const std::string& parent, const JsonValue& wanted,
                                std::size_t index, bool more) {
  const bool hasUrl = browsers::memberNamed(wanted, "url") != nullptr;
  const auto address = hasUrl ? addressAsKept(browsers::textIn(wanted, "url")) : std::string();
  const bool isMissing = !_state.nodes.contains(parent);
  if (isMissing || !address) {
    fail(id, isMissing ? "there is no node " + parent : "invalid URL", isMissing, more);
    return false;
  }
  const std::string made = insert({.parent = parent,
                                   .kind = hasUrl ? NodeKind::bookmark : NodeKind::folder,
                                   .root = {},
                                   .title = titleAsKept(browsers::textIn(wanted, "title")),
                                   .url = *address},
                                  index);
  answerNode(id, made, more);
  return true;
}

void ScriptedBrowser::answerChange(const JsonValue& request) {
  const std::string type = browsers::textIn(request, "type");
  const std::int64_t id = browsers::numberIn(request, "id");
  const std::string nodeId = browsers::textIn(request, "node");
  const std::string parent = browsers::textIn(request, "parent");
  const auto index = static_cast<std::size_t>(browsers::numberIn(request, "index"));
  const bool hasUrl = browsers::memberNamed(request, "url") != nullptr;
  const auto address = hasUrl ? addressAsKept(browsers::textIn(request, "url")) : std::string();
  if (const std::string problem = problemOf(request); !problem.empty()) return fail(id, problem, true);
  if (!address) return fail(id, "invalid URL", false);
  if (!_state.nodes.contains(nodeId)) return fail(id, "no node is named", false);
  if (_state.nodes.at(nodeId).root) return fail(id, "the roots stay as they are", false);
  if (!fits(request)) return fail(id, "different", false);
  if (type == "remove") {
    if (!childrenOf(nodeId).empty()) return fail(id, "the folder is not empty", false);
    unlist(nodeId);
    erase(nodeId);
    hideMobileRoot();
    JsonMessage answer("answer", id);
    answer.member("removed", true);
    _messages.push_back(answer.text());
    return;
  }
  if (type == "move") {
    const std::vector<std::string> below = subtree(nodeId);
    const bool isInItself = std::find(below.begin(), below.end(), parent) != below.end();
    if (isInItself) return fail(id, "a folder cannot lie in itself", false);
    unlist(nodeId);
    list(nodeId, parent, index);
    hideMobileRoot();
    return answerNode(id, nodeId);
  }
  Node& node = changeable(nodeId);
  if (browsers::memberNamed(request, "title")) node.title = titleAsKept(browsers::textIn(request, "title"));
  if (hasUrl) node.url = *address;
  answerNode(id, nodeId);
}

void ScriptedBrowser::fail(std::int64_t id, std::string_view error, bool missing, bool more) {
  JsonMessage answer("answer", id);
  answer.member("more", more);
  answer.member("error", error);
  answer.member("missing", missing);
  _messages.push_back(answer.text());
}

void ScriptedBrowser::answerNode(std::int64_t id, const std::string& node, bool more) {
  JsonMessage answer("answer", id);
  answer.member("more", more);
  answer.begin("node");
  writeNode(answer, node);
  answer.member("index", _state.children.at(_state.nodes.at(node).parent).indexOf(node));
  answer.end();
  _messages.push_back(answer.text());
}

std::string ScriptedBrowser::root(RootKind kind) const {
  for (const auto& [id, node] : _state.nodes) {
    if (node.root == kind) return id;
  }
  return {};
}

const std::vector<std::string>& ScriptedBrowser::childrenOf(const std::string& id) const {
  static const std::vector<std::string> kNone;
  const auto found = _state.children.find(id);
  return found == _state.children.end() ? kNone : found->second.ids();
}

std::vector<std::string> ScriptedBrowser::subtree(const std::string& id) const {
  std::vector<std::string> found;
  std::vector<std::string> open{id};
  while (!open.empty()) {
    const std::string each = std::move(open.back());
    open.pop_back();
    found.push_back(each);
    const std::vector<std::string>& children = childrenOf(each);
    open.insert(open.end(), children.rbegin(), children.rend());
  }
  return found;
}

std::vector<std::string> ScriptedBrowser::folders() const {
  std::vector<std::string> found;
  for (const auto& [id, node] : _state.nodes) {
    if (node.kind == NodeKind::folder) found.push_back(id);
  }
  return found;
}

std::vector<std::string> ScriptedBrowser::entries() const {
  std::vector<std::string> found;
  for (const auto& [id, node] : _state.nodes) {
    if (!node.root) found.push_back(id);
  }
  return found;
}

}  // namespace corvane
