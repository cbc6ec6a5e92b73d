#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "fuzz/Require.h"

// Whatever a user types leads to a place, or to PlaceAddressException; never to another computer in the
// clear.

using namespace corvane;
using pelto::PlaceAddress;

namespace {

void check(const PlaceAddress& address) {
  const std::string& path = address.path;
  require(std::none_of(path.begin(), path.end(), [](char c) { return c >= 0 && c < ' '; }),
          "a path has no control characters");
  require(path.empty() || (path.front() == '/' && path.back() != '/'),
          "a path begins with a slash and ends with none");
  require((path + '/').find("/../") == std::string::npos, "a path leads downwards");
  if (address.kind == PlaceAddress::Kind::directory) return;
  const bool isClear = address.origin.starts_with("http://");
  require(isClear || address.origin.starts_with("https://"), "a place is reached by HTTP");
  require(address.origin.ends_with("://" + address.host), "an origin is scheme and host");
  require(address.host.find_first_of("@?# /\\") == std::string::npos, "a host is a host");
  const std::size_t colon = address.host.rfind(':'), bracket = address.host.rfind(']');
  const bool hasPort = colon != std::string::npos && (bracket == std::string::npos || colon > bracket);
  require(!isClear || pelto::isLoopbackHost(address.host.substr(0, hasPort ? colon : std::string::npos)),
          "nothing goes to another computer in the clear");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    check(pelto::parsePlaceAddress({reinterpret_cast<const char*>(data), size}));
  } catch (const pelto::PlaceAddressException&) {
    return 0;
  }
  return 0;
}
