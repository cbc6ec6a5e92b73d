#pragma once

#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane::browsers {

/// A message of the extension that cannot be used. It ends the connection; nothing has been done for it.
class MessageProblem : public PlatformException {
 public:
  explicit MessageProblem(Message reason)
      : PlatformException("CorvaneBrowserMessageException", std::move(reason)) {}
};

}  // namespace corvane::browsers
