#include "CorvaneSyncClient/platform/pelto/place/ObjectRequests.h"

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane::pelto {

HttpRequest getRequest(const GetRequest& request, std::string url) {
  HttpRequest sent;
  sent.what = Message("read %1", request.name);
  sent.method = "GET";
  sent.url = std::move(url);
  // 0 would drop the body.
  sent.mostBytes = request.mostBytes > 0 ? request.mostBytes : 1;
  sent.mayBeLonger = true;
  if (!request.tag.empty()) sent.headers.push_back("If-None-Match: " + request.tag);
  return sent;
}

GetAnswer getAnswer(const HttpClient& client, const HttpRequest& request, HttpAnswer answer) {
  const bool isConditional = !request.headers.empty();
  if (answer.status == 404) return {};
  if (answer.status == 304 && isConditional) {
    const std::string& header = request.headers.front();
    return {GetAnswer::State::unchanged, {}, header.substr(header.find(": ") + 2)};
  }
  if (answer.status != 200) client.fail(request, answer);
  if (answer.isTooLong) return {GetAnswer::State::tooLong, {}, {}};
  return {GetAnswer::State::present, std::move(answer.body), answer.header("etag")};
}

HttpRequest putRequest(const std::string& name, std::string_view bytes, std::string url) {
  HttpRequest sent;
  sent.what = Message("write %1", name);
  sent.method = "PUT";
  sent.url = std::move(url);
  sent.body = bytes;
  sent.hasBody = true;
  return sent;
}

HttpRequest putNewRequest(const std::string& name, std::string_view bytes, std::string url) {
  HttpRequest sent = putRequest(name, bytes, std::move(url));
  sent.what = Message("make %1", name);
  sent.headers.emplace_back("If-None-Match: *");
  sent.isIdempotent = false;
  return sent;
}

// 409 is S3's for two writers at the same moment, of which neither may have won.
Made madeBy(const HttpClient& client, const HttpRequest& request, const HttpAnswer& answer) {
  if (answer.isGood()) return Made::made;
  if (answer.status == 412) return Made::present;
  const bool isOpen = answer.status == 0 || answer.status == 409 || answer.status == 500 ||
                      answer.status == 502 || answer.status == 503 || answer.status == 504;
  if (!isOpen) client.fail(request, answer);
  return Made::unknown;
}

HttpRequest removeRequest(const std::string& name, std::string url) {
  HttpRequest sent;
  sent.what = Message("remove %1", name);
  sent.method = "DELETE";
  sent.url = std::move(url);
  return sent;
}

void requireGood(const HttpClient& client, const std::vector<HttpRequest>& requests,
                 const std::vector<HttpAnswer>& answers, int alsoGood) {
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (!answers[i].isGood() && answers[i].status != alsoGood) client.fail(requests[i], answers[i]);
  }
}

}  // namespace corvane::pelto
