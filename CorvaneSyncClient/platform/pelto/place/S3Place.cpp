#include "CorvaneSyncClient/platform/pelto/place/S3Place.h"

#include <optional>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "CorvaneSyncClient/platform/pelto/place/ObjectRequests.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceNames.h"
#include "CorvaneSyncClient/platform/pelto/place/S3Listing.h"
#include "CorvaneSyncClient/platform/pelto/place/XmlElements.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kMostPageBytes = 8 << 20;  // of a thousand keys
constexpr std::size_t kMostInBucket = 1'000'000;

std::string withoutSlash(const std::string& path) { return path.empty() ? path : path.substr(1); }

}  // namespace

S3Place::S3Place(const PlaceAddress& address, const PlaceCredentials& credentials, Deadline deadline,
                 double pauseBeforeEnd)
    : _address(address),
      _keys{credentials.user, credentials.secret, address.region},
      _client(settings(credentials, pauseBeforeEnd), deadline) {}

HttpSettings S3Place::settings(const PlaceCredentials& credentials, double pauseBeforeEnd) const {
  HttpSettings settings;
  settings.pauseBeforeEnd = pauseBeforeEnd;
  settings.host = _address.host;
  settings.certificates = _address.certificates;
  settings.authorize = [this](const HttpRequest& request) { return sign(request); };
  settings.reasonIn = [](const HttpAnswer& answer) { return readS3ErrorCode(answer.body); };
  // Ceph says so with 403, others with 400.
  settings.isFull = [](const HttpAnswer& answer) {
    return readS3ErrorCode(answer.body).find("QuotaExceeded") != std::string::npos;
  };
  settings.secrets = {credentials.secret};
  return settings;
}

std::vector<std::string> S3Place::sign(const HttpRequest& request) const {
  const std::string_view target = std::string_view(request.url).substr(_address.origin.size());
  const std::size_t question = target.find('?');
  const std::string_view query =
      question == std::string_view::npos ? std::string_view() : target.substr(question + 1);
  const Date now{Platform::current().clock.now().seconds + _clockAhead};
  return signedS3Headers(_keys, request.method, _address.host, target.substr(0, question), query,
                         request.body, now);
}

// A refused request was not carried out, so it may be repeated whatever it is.
std::vector<HttpAnswer> S3Place::perform(const std::vector<HttpRequest>& requests) {
  std::vector<HttpAnswer> answers = _client.perform(requests);
  std::vector<std::size_t> refused;
  std::vector<HttpRequest> repeated;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (!isClockRefused(answers[i])) continue;
    refused.push_back(i);
    repeated.push_back(requests[i]);
  }
  std::vector<HttpAnswer> further = _client.perform(repeated);
  for (std::size_t i = 0; i < further.size(); ++i) answers[refused[i]] = std::move(further[i]);
  return answers;
}

// Whether the signature's time may be why the answer is a refusal; takes over the server's time then.
bool S3Place::isClockRefused(const HttpAnswer& answer) {
  if (answer.status != 403 || readS3ErrorCode(answer.body) != "RequestTimeTooSkewed") return false;
  const std::optional<Date> theirs = dateFromHttp(answer.header("date"));
  if (!theirs) return false;
  _clockAhead = theirs->seconds - Platform::current().clock.now().seconds;
  return true;
}

std::string S3Place::keyOf(const std::string& name) const {
  const std::string prefix = withoutSlash(_address.path);
  return prefix.empty() ? name : prefix + '/' + name;
}

std::string S3Place::urlOf(const std::string& name) const {
  requirePlaceName(name);
  const std::string bucket = _address.isBucketInHost ? "" : '/' + _address.bucket;
  return _address.origin + bucket + '/' + percentEncodedPath(keyOf(name));
}

Made S3Place::putNew(const std::string& name, std::string_view bytes) {
  const std::vector<HttpRequest> requests{putNewRequest(name, bytes, urlOf(name))};
  return madeBy(_client, requests.front(), perform(requests).front());
}

void S3Place::put(const std::vector<NamedBytes>& objects) {
  std::vector<HttpRequest> requests;
  for (const NamedBytes& object : objects)
    requests.push_back(putRequest(object.name, object.bytes, urlOf(object.name)));
  requireGood(_client, requests, perform(requests));
}

std::vector<GetAnswer> S3Place::get(const std::vector<GetRequest>& wanted) {
  std::vector<HttpRequest> requests;
  for (const GetRequest& request : wanted) requests.push_back(getRequest(request, urlOf(request.name)));
  std::vector<HttpAnswer> answers = perform(requests);
  std::vector<GetAnswer> found;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (answers[i].status == 404 && readS3ErrorCode(answers[i].body) == "NoSuchBucket")
      _client.fail(requests[i], answers[i]);
    found.push_back(getAnswer(_client, requests[i], std::move(answers[i])));
  }
  return found;
}

std::vector<PlaceObject> S3Place::list(const std::string& folder) {
  requirePlaceFolder(folder);
  const std::string prefix = keyOf(folder) + '/';
  const std::string bucket = _address.isBucketInHost ? "/" : '/' + _address.bucket;
  std::vector<PlaceObject> objects;
  for (std::string token, before = "-"; token != before && objects.size() < kMostInBucket;) {
    HttpRequest request;
    request.what = Message("list %1", folder);
    request.method = "GET";
    request.url = _address.origin + bucket + '?' +
                  (token.empty() ? "" : "continuation-token=" + percentEncoded(token) + '&') +
                  "delimiter=%2F&list-type=2&prefix=" + percentEncoded(prefix);
    request.mostBytes = kMostPageBytes;
    const HttpAnswer answer = perform({request}).front();
    if (answer.status != 200) _client.fail(request, answer);
    S3Listing page;
    try {
      page = readS3Listing(answer.body);
    } catch (const XmlException& exception) {
      _client.fail(request, exception.message(),
                   Message("See whether the address leads to a server for S3."));
    }
    for (PlaceObject& object : page.objects) {
      if (!object.name.starts_with(prefix) || !isPlaceNamePart(object.name.substr(prefix.size()))) continue;
      object.name = folder + '/' + object.name.substr(prefix.size());
      objects.push_back(std::move(object));
    }
    if (page.next.empty()) return objects;
    before = std::move(token);
    token = std::move(page.next);
  }
  HttpRequest request;
  request.what = Message("list %1", folder);
  _client.fail(request, Message("its listing has no end"), Message("Tell whoever runs the server."));
}

void S3Place::remove(const std::vector<std::string>& names) {
  std::vector<HttpRequest> requests;
  for (const std::string& name : names) requests.push_back(removeRequest(name, urlOf(name)));
  requireGood(_client, requests, perform(requests), 404);
}

}  // namespace corvane::pelto
