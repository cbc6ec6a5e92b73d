#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

/// A question to a corvane-hub that it answers once an object is there. The answer is waited for together
/// with other files; nothing happens meanwhile, and no processor time is taken.
class HubWait {
 public:
  /// How a question ended.
  enum class Answer {
    there,    ///< the object
    notYet,   ///< the hub has waited as long as it was asked to
    refused,  ///< this computer's token does not hold there
    none,     ///< no answer, or none that is to be expected of a hub
  };

  HubWait(const PlaceAddress& address, const SharedSecret& token);
  ~HubWait();
  HubWait(const HubWait&) = delete;
  HubWait& operator=(const HubWait&) = delete;

  /// Asks for the object `name`, in place of what was asked for before. Nothing is sent before `proceed`.
  void ask(const std::string& name);
  /// Goes on as far as that is possible at once. The answer is told once.
  std::optional<Answer> proceed();
  /// Returns when one of `files` may be ready, when there is something to go on with, or after `atMost`.
  void poll(std::span<const pollfd> files, std::chrono::milliseconds atMost);

 private:
  Answer taken(int code);
  void drop();

  PlaceAddress _address;
  HttpSettings _settings;
  HttpRequest _request;
  void* _multi;
  std::unique_ptr<HttpTransfer> _transfer;
  bool _isAsking = false;
  Deadline _dueFrom;  ///< an answer that comes earlier is none of a hub that waits
};

}  // namespace corvane::pelto
