#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceCredentials.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"

namespace corvane::pelto {

class HttpTransfer;

/// One request. Its views have to stay valid while it is performed.
struct HttpRequest {
  Message what;  ///< for messages: "read f/c/1"
  std::string method;
  std::string url;
  std::vector<std::string> headers;  ///< "Name: value"
  std::string_view body;
  bool hasBody = false;
  /// The longest body that a good answer may have; 0 where its body does not matter and is dropped.
  std::size_t mostBytes = 0;
  bool mayBeLonger = false;  ///< a longer body is no error: the answer says `isTooLong`, and has none
  /// Whether doing it twice does no more than doing it once. Only then it is sent again where it may have
  /// been carried out already.
  bool isIdempotent = true;
};

/// What came back.
struct HttpAnswer {
  int status = 0;  ///< 0: the request was sent, and how it ended is not known
  std::vector<std::pair<std::string, std::string>> headers;  ///< names in lower case
  std::string body;
  bool isTooLong = false;

  /// The value of the header with that name in lower case; "" without one.
  std::string header(std::string_view name) const;
  /// Whether all of it was done. 207, of several results, tells of those that were not where one was asked
  /// for.
  bool isGood() const { return status >= 200 && status < 300 && status != 207; }
};

/// How to talk to a server.
struct HttpSettings {
  std::string host;          ///< for messages
  std::string certificates;  ///< file of the authorities to believe; "" for the system's
  /// Answers the headers that prove who asks, which are wiped then. Called before every sending.
  std::function<std::vector<std::string>(const HttpRequest&)> authorize;
  /// What the server says of an error, for messages; may be empty.
  std::function<std::string(const HttpAnswer&)> reasonIn;
  /// Whether it says so for want of room, where the status does not tell; may be empty.
  std::function<bool(const HttpAnswer&)> isFull;
  std::vector<SharedSecret> secrets;  ///< what no message may show
  double pauseBeforeEnd = 0;          ///< seconds for which the last byte of a body is kept back
  double connect = 5;                 ///< seconds for name, connection and TLS together
  double stall = 30;                  ///< seconds without progress; 0 for as many as there are
  double firstPause = 0.3;            ///< seconds before the second attempt; doubled for each further one
};

/// Requests to one server, up to eight at a time, with one deadline for all of them. Believes nothing that it
/// is told: no redirects, no content codings, HTTPS alone but to this computer itself, and answers that are
/// longer than they may be, cut, or that do not say where they end are errors. What the system's environment
/// says of proxies holds, but not for this computer itself.
///
/// A request is repeated three times, after pauses, when the connection is lost or the server says that it
/// cannot do it now (5xx, 429). A pause that the server asks for is kept by all requests, as often as it asks
/// and as the deadline allows.
class HttpClient {
 public:
  HttpClient(HttpSettings settings, Deadline deadline);
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  /// The answers in the order of the requests, whatever their status. Raises PlaceException for a request
  /// that got none, unless it is not idempotent and may have been carried out.
  std::vector<HttpAnswer> perform(const std::vector<HttpRequest>& requests);
  HttpAnswer perform(const HttpRequest& request);

  /// Answers challenges with this name and password by HTTP's Digest scheme from now on.
  void useDigest(PlaceCredentials credentials) { _digest = std::move(credentials); }

  /// What the last answer's server calls itself, and the protocol: "nginx, HTTP/2".
  const std::string& server() const { return _server; }

  /// Raises the kind of PlaceException that the answer's status calls for.
  [[noreturn]] void fail(const HttpRequest& request, const HttpAnswer& answer) const;
  /// Raises PlaceException.
  [[noreturn]] void fail(const HttpRequest& request, const Message& cause, const Message& remedy) const;

 private:
  class Round;
  Message messageFor(const HttpRequest& request, const Message& cause, const Message& remedy) const;

  HttpSettings _settings;
  Deadline _deadline;
  std::optional<PlaceCredentials> _digest;
  std::string _server;
  void* _multi;
  std::vector<std::unique_ptr<HttpTransfer>> _idle;
};

}  // namespace corvane::pelto
