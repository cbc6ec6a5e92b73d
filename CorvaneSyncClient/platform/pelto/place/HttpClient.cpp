#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"

#include <curl/curl.h>
#include <sodium.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <deque>
#include <map>
#include <new>
#include <optional>

#include "CorvaneSyncClient/platform/pelto/place/CurlMemory.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpTransfer.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kMostAtOnce = 8;
constexpr int kMostAttempts = 4;
constexpr double kLongestPause = 10;  // seconds that nobody has asked for
constexpr int kLongestWait = 1000;    // milliseconds until the deadline is looked at again

Message laterRemedy() { return Message("It is tried again at the next sync."); }

// What a server says when it has not done what it was asked, and may do it later.
bool isPassing(int status) {
  return status == 429 || status == 500 || status == 502 || status == 503 || status == 504;
}

/// The seconds that the server asks to wait; absent where it asks for nothing.
std::optional<double> retryAfterOf(const HttpAnswer& answer) {
  const std::string text = answer.header("retry-after");
  std::uint32_t seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error == std::errc() && end == text.data() + text.size()) return seconds;
  const std::optional<Date> date = dateFromHttp(text), now = dateFromHttp(answer.header("date"));
  if (!date || !now) return std::nullopt;
  return std::max(0.0, date->seconds - now->seconds);
}

}  // namespace

std::string HttpAnswer::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key == name) return value;
  }
  return {};
}

// Takes requests one after the other, as many at a time as there may be, until all are answered.
class HttpClient::Round {
 public:
  Round(HttpClient& client, const std::vector<HttpRequest>& requests)
      : _client(client), _requests(requests), _answers(requests.size()) {
    for (std::size_t i = 0; i < requests.size(); ++i) _waiting.push_back({i, 1, {}, nullptr});
  }
  ~Round() {
    for (auto& [handle, job] : _running) curl_multi_remove_handle(_client._multi, handle);
  }
  Round(const Round&) = delete;
  Round& operator=(const Round&) = delete;

  std::vector<HttpAnswer> run() {
    while (!_waiting.empty() || !_running.empty()) {
      startDue();
      resumeDue();
      int count = 0;
      curl_multi_perform(_client._multi, &count);
      while (CURLMsg* const message = curl_multi_info_read(_client._multi, &count)) {
        if (message->msg == CURLMSG_DONE) take(message->easy_handle, message->data.result);
      }
      await();
    }
    return std::move(_answers);
  }

 private:
  struct Job {
    std::size_t index;
    int attempt;
    Deadline notBefore;
    std::unique_ptr<HttpTransfer> transfer;
  };

  void startDue() {
    const Deadline now = Deadline::clock::now();
    for (auto job = _waiting.begin(); job != _waiting.end() && _running.size() < kMostAtOnce;) {
      if (std::max(job->notBefore, _notBefore) > now) {
        ++job;
        continue;
      }
      start(std::move(*job));
      job = _waiting.erase(job);
    }
  }

  void start(Job job) {
    const HttpRequest& request = _requests[job.index];
    if (Deadline::clock::now() >= _client._deadline)
      _client.fail(request, Message("there is no time left for it"), laterRemedy());
    if (_client._idle.empty()) _client._idle.push_back(std::make_unique<HttpTransfer>());
    job.transfer = std::move(_client._idle.back());
    _client._idle.pop_back();
    job.transfer->prepare(request, _client._settings, _client._digest, _client._deadline);
    CURL* const handle = job.transfer->handle();
    if (curl_multi_add_handle(_client._multi, handle) != CURLM_OK) throw std::bad_alloc();
    _running.emplace(handle, std::move(job));
  }

  void resumeDue() const {
    const Deadline now = Deadline::clock::now();
    for (const auto& [handle, job] : _running) {
      if (job.transfer->pausedUntil().value_or(Deadline::max()) <= now) job.transfer->resume();
    }
  }

  void take(CURL* handle, CURLcode code) {
    const auto found = _running.find(handle);
    curl_multi_remove_handle(_client._multi, handle);
    Job job = std::move(found->second);
    _running.erase(found);
    const std::unique_ptr<HttpTransfer> transfer = std::move(job.transfer);
    const HttpTransfer::Outcome outcome = transfer->finish(code);
    const HttpRequest& request = _requests[job.index];
    const HttpAnswer& answer = transfer->answer();
    const bool isAnswered = outcome == HttpTransfer::Outcome::answered;
    if (isAnswered) {
      const std::string name = firstLineOf(answer.header("server"));
      _client._server = (name.empty() ? tr("a server without a name") : name) + ", " + transfer->protocol();
    }
    const bool isTriedAgain =
        outcome == HttpTransfer::Outcome::lost ||
        (isAnswered && (answer.status == 429 || (request.isIdempotent && isPassing(answer.status))));
    if (isTriedAgain && delay(job, isAnswered ? &answer : nullptr)) {
      _waiting.push_back(std::move(job));
    } else if (isAnswered || outcome == HttpTransfer::Outcome::unknown) {
      _answers[job.index] = std::move(transfer->answer());
    } else {
      _client.fail(request, transfer->problem(), transfer->remedy());
    }
  }

  // Has the job wait before its next attempt; false when it had its last one or there is no time. A server
  // that says how long it wants no requests gets none of the others either, and may say so as often as it
  // likes.
  bool delay(Job& job, const HttpAnswer* answer) {
    const std::optional<double> asked = answer ? retryAfterOf(*answer) : std::nullopt;
    if (job.attempt >= kMostAttempts && !asked) return false;
    // Up to half as long again, so that many who were turned away do not come back at once.
    const double spread = 1 + randombytes_uniform(512) / 1024.0;
    const double pause =
        std::min(_client._settings.firstPause * std::exp2(job.attempt - 1), kLongestPause) * spread;
    const double left = std::chrono::duration<double>(_client._deadline - Deadline::clock::now()).count();
    const double wanted = std::max(pause, asked.value_or(0));
    if (wanted >= left) return false;
    job.notBefore = after(wanted);
    if (asked) _notBefore = std::max(_notBefore, after(*asked));
    ++job.attempt;
    return true;
  }

  // Until something comes, or it is time for a further attempt or the end of a body.
  void await() const {
    if (_waiting.empty() && _running.empty()) return;
    Deadline next = Deadline::clock::now() + std::chrono::milliseconds(kLongestWait);
    if (_running.size() < kMostAtOnce) {
      for (const Job& job : _waiting) next = std::min(next, std::max(job.notBefore, _notBefore));
    }
    for (const auto& [handle, job] : _running)
      next = std::min(next, job.transfer->pausedUntil().value_or(next));
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Deadline::clock::now()).count();
    if (wait > 0) curl_multi_poll(_client._multi, nullptr, 0, static_cast<int>(wait), nullptr);
  }

  HttpClient& _client;
  const std::vector<HttpRequest>& _requests;
  std::vector<HttpAnswer> _answers;
  std::deque<Job> _waiting;
  std::map<CURL*, Job> _running;
  Deadline _notBefore;  // of all of them, since the server has asked for a pause
};

HttpClient::HttpClient(HttpSettings settings, Deadline deadline)
    : _settings(std::move(settings)), _deadline(deadline) {
  initialiseCurl();
  _multi = curl_multi_init();
  if (!_multi) throw std::bad_alloc();
  curl_multi_setopt(_multi, CURLMOPT_MAX_HOST_CONNECTIONS, static_cast<long>(kMostAtOnce));
}

HttpClient::~HttpClient() {
  _idle.clear();
  curl_multi_cleanup(_multi);
}

std::vector<HttpAnswer> HttpClient::perform(const std::vector<HttpRequest>& requests) {
  return Round(*this, requests).run();
}

HttpAnswer HttpClient::perform(const HttpRequest& request) {
  return std::move(perform(std::vector<HttpRequest>{request}).front());
}

void HttpClient::fail(const HttpRequest& request, const Message& cause, const Message& remedy) const {
  throw PlaceException(messageFor(request, cause, remedy));
}

Message HttpClient::messageFor(const HttpRequest& request, const Message& cause,
                               const Message& remedy) const {
  const std::string told = cause.inEnglish();
  const bool isSecret =
      std::any_of(_settings.secrets.begin(), _settings.secrets.end(), [&told](const SharedSecret& secret) {
        return !secret.view().empty() && told.find(secret.view()) != std::string::npos;
      });
  return sentences(Message("Can't %1 at %2: %3.", request.what, _settings.host,
                           isSecret ? Message("it answers with a secret") : cause),
                   remedy);
}

void HttpClient::fail(const HttpRequest& request, const HttpAnswer& answer) const {
  const std::string said = _settings.reasonIn ? _settings.reasonIn(answer) : std::string();
  const std::string status =
      std::to_string(answer.status) + (said.empty() ? "" : " (" + firstLineOf(said) + ")");
  const Message cause("it answers %1", status);
  if (answer.status == 413 || answer.status == 507 || (_settings.isFull && _settings.isFull(answer))) {
    throw PlaceFullException(
        messageFor(request, cause, Message("Make room there, or have whoever runs the server allow more.")));
  }
  switch (answer.status) {
    case 401:
    case 403:
      throw PlaceRefusedException(
          messageFor(request, cause,
                     Message("See whether name and password, or this computer's token, still hold there.")));
    case 402:
      throw PlaceRefusedException(
          messageFor(request, cause, Message("See whether what it costs there is paid.")));
    case 423:
    case 429:
    case 500:
    case 502:
    case 503:
    case 504:
      fail(request, cause, laterRemedy());
    default:
      break;
  }
  if (answer.status >= 300 && answer.status < 400)
    fail(request, Message("it answers %1, which leads elsewhere", status),
         Message("Give the address that it leads to, if that is yours."));
  fail(request, cause, Message("See whether the address is right and leads to a place of this kind."));
}

}  // namespace corvane::pelto
