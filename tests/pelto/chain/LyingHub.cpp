#include "tests/pelto/chain/LyingHub.h"

#include <utility>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"

namespace corvane {

namespace {

constexpr std::string_view kObjects = "/v1/o/";
constexpr std::string_view kListings = "/v1/list/";

LyingHub::Request requestIn(const std::string& text) {
  const std::size_t method = text.find(' '), target = text.find(' ', method + 1);
  return {text.substr(0, method), text.substr(method + 1, target - method - 1),
          text.substr(text.find("\r\n\r\n") + 4)};
}

std::string tagOf(const std::string& bytes) { return '"' + std::to_string(sipHash({}, bytes)) + '"'; }

}  // namespace

LyingHub::LyingHub()
    : _server([this](const std::string& text, ScriptedConnection& connection) { serve(text, connection); }) {}

void LyingHub::lie(const std::string& beginning, const std::string& part, bool isDone, Lie lie) {
  const std::lock_guard lock(_mutex);
  _beginning = beginning;
  _part = part;
  _isDone = isDone;
  _lie = std::move(lie);
}

void LyingHub::beHonest() { lie("", "", true, nullptr); }

std::map<std::string, std::string> LyingHub::objects() const {
  const std::lock_guard lock(_mutex);
  return _objects;
}

void LyingHub::setObjects(std::map<std::string, std::string> objects) {
  const std::lock_guard lock(_mutex);
  _objects = std::move(objects);
}

std::string LyingHub::honestAnswer(const Request& request, const std::string& text, bool isDone) {
  if (request.target.starts_with(kListings)) {
    const std::string folder = request.target.substr(kListings.size()) + '/';
    std::string lines;
    for (const auto& [name, bytes] : _objects) {
      if (name.starts_with(folder) && name.find('/', folder.size()) == std::string::npos)
        lines += std::to_string(bytes.size()) + " 1795000000 " + name + '\n';
    }
    return httpAnswer("200 OK", lines + "end\n");
  }
  const std::string name = request.target.substr(kObjects.size());
  const auto found = _objects.find(name);
  if (request.method == "PUT") {
    const bool hasToBeNew = text.find("\r\nIf-None-Match: *\r\n") != std::string::npos;
    if (found != _objects.end() && hasToBeNew) return httpAnswer("412 Precondition Failed");
    if (found != _objects.end())
      return httpAnswer(found->second == request.body ? "204 No Content" : "409 Conflict");
    if (isDone) _objects.emplace(name, request.body);
    return httpAnswer("201 Created");
  }
  if (found == _objects.end())
    return httpAnswer(request.method == "GET" ? "404 Not Found" : "204 No Content");
  if (request.method == "DELETE") {
    if (isDone) _objects.erase(found);
    return httpAnswer("204 No Content");
  }
  const std::string tag = tagOf(found->second);
  if (text.find("\r\nIf-None-Match: " + tag + "\r\n") != std::string::npos)
    return httpAnswer("304 Not Modified");
  return httpAnswer("200 OK", found->second, "ETag: " + tag + "\r\n");
}

void LyingHub::serve(const std::string& text, ScriptedConnection& connection) {
  const Request request = requestIn(text);
  std::string honest;
  Lie lie;
  {
    const std::lock_guard lock(_mutex);
    const bool isLie =
        _lie && text.starts_with(_beginning) && request.target.find(_part) != std::string::npos;
    honest = honestAnswer(request, text, !isLie || _isDone);
    if (isLie) lie = _lie;
  }
  if (lie) {
    lie(request, honest, connection);
  } else {
    connection.send(honest);
  }
}

}  // namespace corvane
