#include <cstddef>
#include <cstdint>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/place/HubListing.h"
#include "CorvaneSyncClient/platform/pelto/place/S3Listing.h"
#include "CorvaneSyncClient/platform/pelto/place/WebDavListing.h"
#include "CorvaneSyncClient/platform/pelto/place/XmlElements.h"
#include "fuzz/Require.h"

// Whatever a server sends is a listing, or refused.

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    for (const pelto::WebDavEntry& entry : pelto::readWebDavListing(bytes))
      require(entry.name.size() <= size, "a name is no longer than what it stands in");
  } catch (const pelto::XmlException&) {
  }
  try {
    const pelto::S3Listing listing = pelto::readS3Listing(bytes);
    require(listing.objects.size() <= size, "there are no more keys than bytes");
  } catch (const pelto::XmlException&) {
  }
  pelto::readS3ErrorCode(bytes);
  if (const auto objects = pelto::readHubListing(bytes)) {
    require(bytes.ends_with("end\n"), "a listing without its last line is cut");
    std::size_t told = 4;
    for (const pelto::PlaceObject& object : *objects) told += object.name.size() + 5;
    require(told <= size, "there is no more than what came");
  }
  return 0;
}
