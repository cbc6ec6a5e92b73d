#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"

namespace corvane::pelto {

/// One attempt at a request: a handle of libcurl's with what it needs, used for one attempt after the other.
class HttpTransfer {
 public:
  HttpTransfer();

  /// Sets everything up for an attempt. The request and settings have to outlive it.
  void prepare(const HttpRequest& request, const HttpSettings& settings,
               const std::optional<PlaceCredentials>& digest, Deadline deadline);
  CURL* handle() const { return _handle.get(); }

  /// When the rest of the body is to follow, by `resume`; absent unless it is kept back.
  std::optional<Deadline> pausedUntil() const { return _pausedUntil; }
  void resume();

  /// How the attempt ended.
  enum class Outcome {
    answered,
    lost,     ///< the connection ended before the answer did
    unknown,  ///< sent and not answered, and not to be repeated
    failed,   ///< `problem` and `remedy` say why
  };
  /// To be called once libcurl is done.
  Outcome finish(CURLcode code);

  HttpAnswer& answer() { return _answer; }
  const Message& problem() const { return _problem; }
  const Message& remedy() const { return _remedy; }
  /// "HTTP/2"
  std::string protocol() const;

 private:
  struct HandleDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };
  struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };

  void setRequest(const HttpRequest& request);
  void setLimits(const HttpSettings& settings, Deadline deadline);
  void setTrust(const HttpSettings& settings);
  void append(const std::string& header);
  Outcome outcomeOf(CURLcode code);
  void checkWhole();
  bool takeHeader(std::string_view line);
  bool takeBody(std::string_view bytes);
  std::size_t giveBody(char* room, std::size_t size);
  bool refuse(Message problem);
  static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t onGive(char* room, std::size_t size, std::size_t count, void* self);
  static int onSeek(void* self, curl_off_t offset, int origin);

  std::unique_ptr<CURL, HandleDeleter> _handle;
  std::unique_ptr<curl_slist, ListDeleter> _headers;
  const HttpRequest* _request = nullptr;
  double _pause = 0;  ///< seconds; 0 once it has begun
  std::optional<Deadline> _pausedUntil;
  HttpAnswer _answer;
  std::size_t _headerBytes = 0;
  std::size_t _bodyBytes = 0;
  std::size_t _givenBytes = 0;
  Message _problem;
  Message _remedy;
  char _error[CURL_ERROR_SIZE] = {};
};

}  // namespace corvane::pelto
