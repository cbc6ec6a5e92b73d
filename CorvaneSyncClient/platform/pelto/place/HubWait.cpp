#include "CorvaneSyncClient/platform/pelto/place/HubWait.h"

#include <curl/curl.h>

#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/CurlMemory.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpTransfer.h"
#include "CorvaneSyncClient/platform/pelto/place/HubPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/ObjectRequests.h"

namespace corvane::pelto {

namespace {

// Less than the minute after which what stands between often cuts a connection that carries nothing.
constexpr int kWaitSeconds = 50;
// For a connection, and for an answer on its way.
constexpr int kGraceSeconds = 15;

}  // namespace

HubWait::HubWait(const PlaceAddress& address, const SharedSecret& token)
    : _address(address), _settings(hubSettings(address, token)) {
  _settings.stall = 0;
  initialiseCurl();
  _multi = curl_multi_init();
  if (!_multi) throw std::bad_alloc();
}

HubWait::~HubWait() {
  drop();
  _transfer.reset();
  curl_multi_cleanup(_multi);
}

// Whoever is told that the object is there reads it by other means: of its bytes one is taken.
void HubWait::ask(const std::string& name) {
  drop();
  const std::string url = hubObjectUrl(_address, name) + "?wait=" + std::to_string(kWaitSeconds);
  GetRequest wanted;
  wanted.name = name;
  _request = getRequest(wanted, url);
  if (!_transfer) _transfer = std::make_unique<HttpTransfer>();
  _transfer->prepare(_request, _settings, std::nullopt, after(kWaitSeconds + kGraceSeconds));
  if (curl_multi_add_handle(_multi, _transfer->handle()) != CURLM_OK) throw std::bad_alloc();
  _isAsking = true;
  _dueFrom = after(kWaitSeconds - 1);
}

std::optional<HubWait::Answer> HubWait::proceed() {
  if (!_isAsking) return std::nullopt;
  int count = 0;
  curl_multi_perform(_multi, &count);
  const CURLMsg* const message = curl_multi_info_read(_multi, &count);
  if (!message || message->msg != CURLMSG_DONE) return std::nullopt;
  const Answer answer = taken(message->data.result);
  drop();
  return answer;
}

HubWait::Answer HubWait::taken(int code) {
  if (_transfer->finish(static_cast<CURLcode>(code)) != HttpTransfer::Outcome::answered) return Answer::none;
  switch (_transfer->answer().status) {
    case 200:
      return Answer::there;
    case 401:
    case 403:
      return Answer::refused;
    case 404:
      return Deadline::clock::now() >= _dueFrom ? Answer::notYet : Answer::none;
    default:
      return Answer::none;
  }
}

void HubWait::drop() {
  if (std::exchange(_isAsking, false)) curl_multi_remove_handle(_multi, _transfer->handle());
}

void HubWait::poll(std::span<const pollfd> files, std::chrono::milliseconds atMost) {
  std::vector<curl_waitfd> more;
  for (const pollfd& file : files) {
    if (file.fd >= 0) more.push_back({file.fd, CURL_WAIT_POLLIN, 0});
  }
  const CURLMcode result = curl_multi_poll(_multi, more.data(), static_cast<unsigned>(more.size()),
                                           static_cast<int>(atMost.count()), nullptr);
  if (result != CURLM_OK) throw std::bad_alloc();  // it fails for nothing else
}

}  // namespace corvane::pelto
