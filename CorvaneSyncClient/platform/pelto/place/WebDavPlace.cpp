#include "CorvaneSyncClient/platform/pelto/place/WebDavPlace.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "CorvaneSyncClient/platform/pelto/place/ObjectRequests.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceLeftovers.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceNames.h"
#include "CorvaneSyncClient/platform/pelto/place/XmlElements.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kMostMultistatus = 128 << 20;
constexpr std::string_view kMember = "/o";

constexpr std::string_view kAskedProperties =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<propfind xmlns=\"DAV:\"><prop><resourcetype/><getcontentlength/><getlastmodified/></prop></propfind>\n";

HttpRequest requestFor(Message what, std::string method, std::string url) {
  HttpRequest request;
  request.what = std::move(what);
  request.method = std::move(method);
  request.url = std::move(url);
  return request;
}

bool asksForDigest(const HttpAnswer& answer) {
  return answer.status == 401 &&
         std::any_of(answer.headers.begin(), answer.headers.end(), [](const auto& header) {
           std::string scheme = header.second.substr(0, 7);
           std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                          [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
           return header.first == "www-authenticate" && scheme == "digest ";
         });
}

// What a server may say to a move of which it is not known whether it happened, or that another one was
// faster than. Kernels refuse to rename onto a filled directory, and servers tell that in many ways.
bool isOpen(int status) {
  return status == 0 || status == 207 || status == 403 || status == 404 || status == 405 || status == 409 ||
         status == 423 || status == 500 || status == 502 || status == 503 || status == 504;
}

}  // namespace

WebDavPlace::WebDavPlace(const PlaceAddress& address, const PlaceCredentials& credentials, Deadline deadline,
                         double pauseBeforeEnd)
    : _address(address), _credentials(credentials), _client(settings(pauseBeforeEnd), deadline) {}

HttpSettings WebDavPlace::settings(double pauseBeforeEnd) const {
  HttpSettings settings;
  settings.pauseBeforeEnd = pauseBeforeEnd;
  settings.host = _address.host;
  settings.certificates = _address.certificates;
  settings.authorize = [this](const HttpRequest&) {
    if (_usesDigest || _credentials.user.empty()) return std::vector<std::string>();
    std::string proof = basicAuthorization(_credentials.user, _credentials.secret.view());
    const WipeAtEnd wiping(proof);
    return authorizationHeader("Basic", proof);
  };
  settings.secrets = {_credentials.secret};
  return settings;
}

// A refused request was not carried out, so it may be repeated whatever it is.
std::vector<HttpAnswer> WebDavPlace::perform(const std::vector<HttpRequest>& requests) {
  std::vector<HttpAnswer> answers = _client.perform(requests);
  if (_usesDigest || _credentials.user.empty() ||
      !std::any_of(answers.begin(), answers.end(), &asksForDigest))
    return answers;
  _usesDigest = true;
  _client.useDigest(_credentials);
  std::vector<HttpRequest> repeated;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (answers[i].status == 401) repeated.push_back(requests[i]);
  }
  std::vector<HttpAnswer> further = _client.perform(repeated);
  auto next = further.begin();
  for (HttpAnswer& answer : answers) {
    if (answer.status == 401) answer = std::move(*next++);
  }
  return answers;
}

HttpAnswer WebDavPlace::perform(const HttpRequest& request) {
  return std::move(perform(std::vector<HttpRequest>{request}).front());
}

std::string WebDavPlace::urlOf(std::string_view name) const {
  return _address.origin + percentEncodedPath(_address.path) + '/' + std::string(name);
}

// Makes a collection that may be there, with those above it, but not the place's own.
void WebDavPlace::makeFolder(const std::string& name, const Message& what) {
  if (_folders.contains(name)) return;
  const HttpRequest request = requestFor(what, "MKCOL", urlOf(name) + '/');
  HttpAnswer answer = perform(request);
  const bool isParentMissing = answer.status == 409 || answer.status == 404;
  if (isParentMissing && name.find('/') != std::string::npos) {
    makeFolder(std::string(folderOf(name)), what);
    answer = perform(request);
  } else if (isParentMissing) {
    _client.fail(request, Message("%1 does not exist", _address.description()),
                 Message("Make it, or give another address."));
  }
  // 405: it is there.
  if (!answer.isGood() && answer.status != 405) _client.fail(request, answer);
  _folders.insert(name);
}

// Makes a collection of a new name.
void WebDavPlace::makeCollection(const std::string& name, const Message& what) {
  const HttpRequest request = requestFor(what, "MKCOL", urlOf(name) + '/');
  HttpAnswer answer = perform(request);
  if (answer.status == 409 || answer.status == 404) {
    const std::string folder(folderOf(name));
    _folders.erase(folder);
    makeFolder(folder, what);
    answer = perform(request);
  }
  if (!answer.isGood() && answer.status != 405) _client.fail(request, answer);
}

Made WebDavPlace::putNew(const std::string& name, std::string_view bytes) {
  requirePlaceName(name);
  const Message what("make %1", name);
  const std::string temporary = std::string(folderOf(name)) + '/' + newTemporaryName();
  makeCollection(temporary, what);
  HttpRequest filling = putRequest(name, bytes, urlOf(temporary) + std::string(kMember));
  filling.what = what;
  const HttpAnswer filled = perform(filling);
  if (!filled.isGood()) {
    discard(temporary);
    _client.fail(filling, filled);
  }
  HttpRequest moving = requestFor(what, "MOVE", urlOf(temporary) + '/');
  moving.headers = {"Destination: " + urlOf(name) + '/', "Overwrite: F"};
  moving.isIdempotent = false;
  const HttpAnswer moved = perform(moving);
  if (moved.isGood()) return Made::made;
  const bool isThere = moved.status == 412 || (isOpen(moved.status) && isKnownToBeThere(name, what));
  if (isThere || !isOpen(moved.status) || moved.status == 403) discard(temporary);
  if (isThere) return Made::present;
  if (!isOpen(moved.status) || moved.status == 403) _client.fail(moving, moved);
  return Made::unknown;
}

// False also when the server does not answer.
bool WebDavPlace::isKnownToBeThere(const std::string& name, const Message& what) {
  try {
    return perform(requestFor(what, "HEAD", urlOf(name) + std::string(kMember))).isGood();
  } catch (const PlaceException&) {
    return false;
  }
}

// What stays is a leftover for `list`; a failure here must not hide what became of the object.
void WebDavPlace::discard(const std::string& temporary) {
  try {
    perform(requestFor(Message("discard %1", temporary), "DELETE", urlOf(temporary) + '/'));
  } catch (const PlaceException&) {
    return;
  }
}

void WebDavPlace::put(const std::vector<NamedBytes>& objects) {
  std::vector<HttpRequest> requests;
  for (const NamedBytes& object : objects) {
    requirePlaceName(object.name);
    makeFolder(std::string(folderOf(object.name)), "write " + object.name);
    requests.push_back(putRequest(object.name, object.bytes, urlOf(object.name)));
  }
  requireGood(_client, requests, perform(requests));
}

std::vector<GetAnswer> WebDavPlace::get(const std::vector<GetRequest>& wanted) {
  std::vector<HttpRequest> requests;
  for (const GetRequest& request : wanted) {
    requirePlaceName(request.name);
    const std::string member(request.writing == Writing::contested ? kMember : "");
    requests.push_back(getRequest(request, urlOf(request.name) + member));
  }
  std::vector<HttpAnswer> answers = perform(requests);
  std::vector<GetAnswer> found;
  for (std::size_t i = 0; i < answers.size(); ++i)
    found.push_back(getAnswer(_client, requests[i], std::move(answers[i])));
  return found;
}

std::vector<WebDavEntry> WebDavPlace::entriesOf(const HttpRequest& request, const HttpAnswer& answer) const {
  if (answer.status != 207) _client.fail(request, answer);
  try {
    return readWebDavListing(answer.body);
  } catch (const XmlException& exception) {
    _client.fail(request, exception.message(), Message("See whether the address leads to a WebDAV server."));
  }
}

std::vector<PlaceObject> WebDavPlace::list(const std::string& folder) {
  requirePlaceFolder(folder);
  HttpRequest request = requestFor(Message("list %1", folder), "PROPFIND", urlOf(folder) + '/');
  request.headers = {"Depth: 1", "Content-Type: application/xml; charset=utf-8"};
  request.body = kAskedProperties;
  request.hasBody = true;
  request.mostBytes = kMostMultistatus;
  const HttpAnswer answer = perform(request);
  if (answer.status == 404) return {};
  const std::vector<WebDavEntry> entries = entriesOf(request, answer);
  std::vector<PlaceObject> objects;
  for (const WebDavEntry& entry : entries) {
    if (isPlaceNamePart(entry.name))
      objects.push_back({folder + '/' + entry.name, entry.bytes, entry.date.value_or(Date{})});
  }
  removeLeftovers(folder, entries, answer);
  return objects;
}

// Failures are not reported: what stays now goes the next time.
void WebDavPlace::removeLeftovers(const std::string& folder, const std::vector<WebDavEntry>& entries,
                                  const HttpAnswer& answer) {
  const std::optional<Date> now = dateFromHttp(answer.header("date"));
  std::vector<HttpRequest> requests;
  for (const WebDavEntry& entry : entries) {
    if (now && entry.date && isTemporaryName(entry.name) && now->seconds - entry.date->seconds > kLeftoverAge)
      requests.push_back(
          requestFor(Message("discard %1", entry.name), "DELETE", urlOf(folder + '/' + entry.name) + '/'));
  }
  perform(requests);
}

// Which of the two forms an object has is not known here, and servers differ in whether they take a
// collection's name without the slash at its end.
void WebDavPlace::remove(const std::vector<std::string>& names) {
  std::vector<HttpRequest> requests;
  for (const std::string& name : names) {
    requirePlaceName(name);
    requests.push_back(removeRequest(name, urlOf(name)));
  }
  const std::vector<HttpAnswer> answers = perform(requests);
  std::vector<HttpRequest> collections;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (answers[i].isGood() || answers[i].status == 404) continue;
    collections.push_back(requests[i]);
    collections.back().url += '/';
  }
  requireGood(_client, collections, perform(collections), 404);
}

}  // namespace corvane::pelto
