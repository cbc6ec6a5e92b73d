#include "CorvaneSyncClient/platform/pelto/place/HttpTransfer.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <new>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kMostHeaderBytes = 64 << 10;
/// Of a body that nobody reads: a page about an error.
constexpr std::size_t kMostIdleBytes = 1 << 20;
/// Of a page about an error that is kept, for what it says.
constexpr std::size_t kKeptErrorBytes = 16 << 10;
/// Bytes a second that count as progress.
constexpr long kSlowest = 100;
constexpr long kUploadBuffer = 64 << 10;

constexpr TextKey kServerRemedy = TextKey("See whether the address is right; tell whoever runs the server.");
constexpr TextKey kConnectionRemedy =
    TextKey("See whether this computer is online and the address is right.");

std::string hostIn(const std::string& url) {
  const std::size_t begin = url.find("://") + 3;
  std::string host = url.substr(begin, url.find_first_of("/?#", begin) - begin);
  const std::size_t colon = host.rfind(':');
  const std::size_t bracket = host.rfind(']');
  if (colon != std::string::npos && (bracket == std::string::npos || colon > bracket)) host.resize(colon);
  return host;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  return text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin);
}

bool isSuccess(long status) { return status >= 200 && status < 300; }

long millisecondsOf(double seconds) { return std::max(1L, static_cast<long>(seconds * 1000)); }

}  // namespace

HttpTransfer::HttpTransfer() : _handle(curl_easy_init()) {
  if (!_handle) throw std::bad_alloc();
}

// The handle keeps its state between attempts, Digest's among it, so every option that any request sets is
// set for each. None of these options can fail with these values.
void HttpTransfer::prepare(const HttpRequest& request, const HttpSettings& settings,
                           const std::optional<PlaceCredentials>& digest, Deadline deadline) {
  _request = &request;
  _answer = {};
  _headerBytes = _bodyBytes = _givenBytes = 0;
  _pause = settings.pauseBeforeEnd;
  _pausedUntil.reset();
  _problem = {};
  _remedy = {};
  _error[0] = '\0';
  setRequest(request);
  if (settings.authorize) {
    for (std::string& header : settings.authorize(request)) {
      const WipeAtEnd wiping(header);
      append(header);
    }
  }
  curl_easy_setopt(handle(), CURLOPT_HTTPHEADER, _headers.get());
  curl_easy_setopt(handle(), CURLOPT_HTTPAUTH, digest ? CURLAUTH_DIGEST : CURLAUTH_NONE);
  curl_easy_setopt(handle(), CURLOPT_USERNAME, digest ? digest->user.c_str() : nullptr);
  std::string password(digest ? digest->secret.view() : std::string_view());
  const WipeAtEnd wiping(password);
  curl_easy_setopt(handle(), CURLOPT_PASSWORD, digest ? password.c_str() : nullptr);
  setLimits(settings, deadline);
  setTrust(settings);
}

void HttpTransfer::setRequest(const HttpRequest& request) {
  _headers.reset();
  append("Expect:");  // a round trip more for a large body
  for (const std::string& header : request.headers) append(header);
  curl_easy_setopt(handle(), CURLOPT_URL, request.url.c_str());
  if (request.hasBody) {
    if (request.method == "PUT") append("Content-Type: application/octet-stream");
    curl_easy_setopt(handle(), CURLOPT_POST, 1L);
    curl_easy_setopt(handle(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    const char* const whole = request.body.empty() ? "" : request.body.data();
    curl_easy_setopt(handle(), CURLOPT_POSTFIELDS, _pause > 0 ? nullptr : whole);
    curl_easy_setopt(handle(), CURLOPT_READFUNCTION, &HttpTransfer::onGive);
    curl_easy_setopt(handle(), CURLOPT_READDATA, this);
    curl_easy_setopt(handle(), CURLOPT_SEEKFUNCTION, &HttpTransfer::onSeek);
    curl_easy_setopt(handle(), CURLOPT_SEEKDATA, this);
  } else {
    curl_easy_setopt(handle(), CURLOPT_HTTPGET, 1L);
  }
  curl_easy_setopt(handle(), CURLOPT_NOBODY, request.method == "HEAD" ? 1L : 0L);
  curl_easy_setopt(handle(), CURLOPT_CUSTOMREQUEST, request.method.c_str());
  curl_easy_setopt(handle(), CURLOPT_HEADERFUNCTION, &HttpTransfer::onHeader);
  curl_easy_setopt(handle(), CURLOPT_HEADERDATA, this);
  curl_easy_setopt(handle(), CURLOPT_WRITEFUNCTION, &HttpTransfer::onBody);
  curl_easy_setopt(handle(), CURLOPT_WRITEDATA, this);
  curl_easy_setopt(handle(), CURLOPT_PRIVATE, this);
  curl_easy_setopt(handle(), CURLOPT_ERRORBUFFER, _error);
  curl_easy_setopt(handle(), CURLOPT_USERAGENT, "CorvaneSyncClient");
}

void HttpTransfer::setLimits(const HttpSettings& settings, Deadline deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Deadline::clock::now()).count();
  curl_easy_setopt(handle(), CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(left)));
  curl_easy_setopt(handle(), CURLOPT_CONNECTTIMEOUT_MS, millisecondsOf(settings.connect));
  // With a limit, libcurl looks every second.
  curl_easy_setopt(handle(), CURLOPT_LOW_SPEED_LIMIT, settings.stall > 0 ? kSlowest : 0L);
  curl_easy_setopt(handle(), CURLOPT_LOW_SPEED_TIME, std::max(1L, static_cast<long>(settings.stall)));
  curl_easy_setopt(handle(), CURLOPT_UPLOAD_BUFFERSIZE, kUploadBuffer);
  curl_easy_setopt(handle(), CURLOPT_NOSIGNAL, 1L);
  // The system's resolver takes as long as it likes, in a thread, and is not waited for beyond the limits.
  curl_easy_setopt(handle(), CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(handle(), CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(handle(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
}

// What goes to this computer itself may go without TLS, and never by a proxy.
void HttpTransfer::setTrust(const HttpSettings& settings) {
  const bool isLocal = isLoopbackHost(hostIn(_request->url));
  // With TLS a server says at once whether one connection will do for all; without, the second request would
  // wait for the first one's answer.
  curl_easy_setopt(handle(), CURLOPT_PIPEWAIT, _request->url.starts_with("https:") ? 1L : 0L);
  curl_easy_setopt(handle(), CURLOPT_PROTOCOLS_STR, isLocal ? "http,https" : "https");
  curl_easy_setopt(handle(), CURLOPT_NOPROXY, isLocal ? "*" : nullptr);
  curl_easy_setopt(handle(), CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (!settings.certificates.empty())
    curl_easy_setopt(handle(), CURLOPT_CAINFO, settings.certificates.c_str());
}

void HttpTransfer::append(const std::string& header) {
  curl_slist* const longer = curl_slist_append(_headers.get(), header.c_str());
  if (!longer) throw std::bad_alloc();
  if (!_headers) _headers.reset(longer);
}

std::size_t HttpTransfer::onHeader(char* bytes, std::size_t /*size*/, std::size_t count, void* self) {
  return static_cast<HttpTransfer*>(self)->takeHeader({bytes, count}) ? count : 0;
}

std::size_t HttpTransfer::onBody(char* bytes, std::size_t /*size*/, std::size_t count, void* self) {
  return static_cast<HttpTransfer*>(self)->takeBody({bytes, count}) ? count : 0;
}

std::size_t HttpTransfer::onGive(char* room, std::size_t /*size*/, std::size_t count, void* self) {
  return static_cast<HttpTransfer*>(self)->giveBody(room, count);
}

// What went to a connection that the server had closed goes to a new one.
int HttpTransfer::onSeek(void* self, curl_off_t offset, int /*origin*/) {
  static_cast<HttpTransfer*>(self)->_givenBytes = static_cast<std::size_t>(offset);
  return CURL_SEEKFUNC_OK;
}

// What is given leaves before more is asked for.
std::size_t HttpTransfer::giveBody(char* room, std::size_t size) {
  const std::string_view left = _request->body.substr(_givenBytes);
  if (left.size() == 1 && _pause > 0) {
    _pausedUntil = after(std::exchange(_pause, 0));
    return CURL_READFUNC_PAUSE;
  }
  const std::string_view now = left.substr(0, std::min(size, std::max<std::size_t>(left.size(), 2) - 1));
  std::copy(now.begin(), now.end(), room);
  _givenBytes += now.size();
  return now.size();
}

void HttpTransfer::resume() {
  _pausedUntil.reset();
  curl_easy_pause(handle(), CURLPAUSE_CONT);  // what fails here fails the transfer
}

bool HttpTransfer::refuse(Message problem) {
  if (_problem.empty()) _problem = std::move(problem);
  _remedy = kServerRemedy;
  return false;
}

bool HttpTransfer::takeHeader(std::string_view line) {
  _headerBytes += line.size();
  if (_headerBytes > kMostHeaderBytes) return refuse(Message("the header of its answer is too long"));
  if (line.starts_with("HTTP/")) {  // of a further answer, after an interim one or a challenge
    _answer = {};
    return true;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return true;
  std::string name(line.substr(0, colon));
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  _answer.headers.emplace_back(std::move(name), trimmed(line.substr(colon + 1)));
  return true;
}

bool HttpTransfer::takeBody(std::string_view bytes) {
  long status = 0;
  curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &status);
  const bool isGood = isSuccess(status), isRead = isGood && _request->mostBytes > 0;
  _bodyBytes += bytes.size();
  if (isRead && _bodyBytes > _request->mostBytes && _request->mayBeLonger) {
    _answer.isTooLong = true;
    return false;
  }
  if (_bodyBytes > (isRead ? _request->mostBytes : kMostIdleBytes)) {
    return refuse(Message("its answer has more than %1 bytes",
                          std::to_string(isRead ? _request->mostBytes : kMostIdleBytes)));
  }
  if (isRead) {
    _answer.body += bytes;
  } else if (!isGood && _answer.body.size() < kKeptErrorBytes) {
    _answer.body += bytes.substr(0, kKeptErrorBytes - _answer.body.size());
  }
  return true;
}

std::string HttpTransfer::protocol() const {
  long version = 0;
  curl_easy_getinfo(handle(), CURLINFO_HTTP_VERSION, &version);
  if (version == CURL_HTTP_VERSION_2_0) return "HTTP/2";
  return version == CURL_HTTP_VERSION_1_0 ? "HTTP/1.0" : "HTTP/1.1";
}

// libcurl finds out where a body ends before its announced length or last chunk. What announces nothing ends
// where the connection does, whoever ends it.
void HttpTransfer::checkWhole() {
  std::string length;
  bool isChunked = false;
  for (const auto& [name, value] : _answer.headers) {
    if (name == "content-length") {
      if (!length.empty() && value != length) refuse(Message("its answer has two lengths"));
      length = value;
    }
    if (name == "transfer-encoding") {
      isChunked = true;
      if (value != "chunked") refuse(Message("its answer comes in an encoding that nobody asked for"));
    }
    if (name == "content-encoding" && value != "identity")
      refuse(Message("its answer comes in an encoding that nobody asked for"));
  }
  if (protocol() != "HTTP/2" && length.empty() && !isChunked)
    refuse(Message("its answer doesn't say how long it is, so that nobody can tell whether it was cut"));
}

HttpTransfer::Outcome HttpTransfer::finish(CURLcode code) {
  long status = 0;
  curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &status);
  _answer.status = static_cast<int>(status);
  if (_answer.isTooLong) {
    _answer.body.clear();
    return Outcome::answered;
  }
  if (code == CURLE_OK && isSuccess(status) && _request->mostBytes > 0) checkWhole();
  const Outcome outcome = _problem.empty() ? outcomeOf(code) : Outcome::failed;
  long sent = 0;
  curl_easy_getinfo(handle(), CURLINFO_REQUEST_SIZE, &sent);
  if (outcome == Outcome::answered || sent == 0 || _request->isIdempotent) return outcome;
  _answer = {};
  return Outcome::unknown;
}

HttpTransfer::Outcome HttpTransfer::outcomeOf(CURLcode code) {
  _problem = std::string(_error[0] != '\0' ? _error : curl_easy_strerror(code));
  _remedy = kConnectionRemedy;
  switch (code) {
    case CURLE_OK:
      return Outcome::answered;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      _problem = Message("the connection was lost (%1)", _problem);
      return Outcome::lost;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CONNECT_ERROR:
      _remedy = Message(
          "See whether the address and this computer's clock are right. The certificate of an authority "
          "of one's own goes to the address as ca=FILE.");
      return Outcome::failed;
    default:
      return Outcome::failed;
  }
}

}  // namespace corvane::pelto
