#include "CorvaneSyncClient/platform/foundation/RandomBytes.h"

#include <sys/random.h>

#include <cerrno>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane {

// Up to 256 bytes come whole or not at all.
void takeRandomBytes(std::span<char> bytes) {
  while (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    if (errno == EINTR) continue;
    throw PlatformException(NSObjectNotAvailableException,
                            Message("Can't get random bytes: %1", std::system_category().message(errno)));
  }
}

}  // namespace corvane
