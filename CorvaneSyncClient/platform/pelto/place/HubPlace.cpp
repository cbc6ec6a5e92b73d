#include "CorvaneSyncClient/platform/pelto/place/HubPlace.h"

#include <optional>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "CorvaneSyncClient/platform/pelto/place/HubListing.h"
#include "CorvaneSyncClient/platform/pelto/place/ObjectRequests.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceNames.h"

namespace corvane::pelto {

namespace {

/// A million objects with the longest names that there are in use.
constexpr std::size_t kMostListing = 128 << 20;

HttpSettings pausingBeforeEnd(HttpSettings settings, double pause) {
  settings.pauseBeforeEnd = pause;
  return settings;
}

std::string baseOf(const PlaceAddress& address) {
  return address.origin + percentEncodedPath(address.path) + "/v1/";
}

}  // namespace

HttpSettings hubSettings(const PlaceAddress& address, const SharedSecret& token) {
  HttpSettings settings;
  settings.host = address.host;
  settings.certificates = address.certificates;
  settings.authorize = [token](const HttpRequest&) { return authorizationHeader("Bearer", token.view()); };
  settings.reasonIn = [](const HttpAnswer& answer) { return answer.body; };
  settings.secrets = {token};
  return settings;
}

std::string hubObjectUrl(const PlaceAddress& address, const std::string& name) {
  requirePlaceName(name);
  return baseOf(address) + "o/" + name;
}

HubPlace::HubPlace(const PlaceAddress& address, const SharedSecret& token, Deadline deadline,
                   double pauseBeforeEnd)
    : _description(address.description()),
      _address(address),
      _client(pausingBeforeEnd(hubSettings(address, token), pauseBeforeEnd), deadline) {}

std::string HubPlace::urlOf(const std::string& name) const { return hubObjectUrl(_address, name); }

Made HubPlace::putNew(const std::string& name, std::string_view bytes) {
  const HttpRequest request = putNewRequest(name, bytes, urlOf(name));
  return madeBy(_client, request, _client.perform(request));
}

void HubPlace::put(const std::vector<NamedBytes>& objects) {
  std::vector<HttpRequest> requests;
  for (const NamedBytes& object : objects)
    requests.push_back(putRequest(object.name, object.bytes, urlOf(object.name)));
  requireGood(_client, requests, _client.perform(requests));
}

std::vector<GetAnswer> HubPlace::get(const std::vector<GetRequest>& wanted) {
  std::vector<HttpRequest> requests;
  for (const GetRequest& request : wanted) requests.push_back(getRequest(request, urlOf(request.name)));
  std::vector<HttpAnswer> answers = _client.perform(requests);
  std::vector<GetAnswer> found;
  for (std::size_t i = 0; i < answers.size(); ++i)
    found.push_back(getAnswer(_client, requests[i], std::move(answers[i])));
  return found;
}

std::vector<PlaceObject> HubPlace::list(const std::string& folder) {
  requirePlaceFolder(folder);
  HttpRequest request;
  request.what = Message("list %1", folder);
  request.method = "GET";
  request.url = baseOf(_address) + "list/" + folder;
  request.mostBytes = kMostListing;
  const HttpAnswer answer = _client.perform(request);
  if (answer.status == 404) return {};
  if (answer.status != 200) _client.fail(request, answer);
  std::optional<std::vector<PlaceObject>> objects = readHubListing(answer.body);
  if (!objects)
    _client.fail(request, Message("its listing is cut or of another form"),
                 Message("Tell whoever runs the server."));
  std::erase_if(*objects, [&](const PlaceObject& object) {
    return !isPlaceName(object.name) || folderOf(object.name) != folder;
  });
  return *std::move(objects);
}

void HubPlace::remove(const std::vector<std::string>& names) {
  std::vector<HttpRequest> requests;
  for (const std::string& name : names) requests.push_back(removeRequest(name, urlOf(name)));
  requireGood(_client, requests, _client.perform(requests), 404);
}

}  // namespace corvane::pelto
