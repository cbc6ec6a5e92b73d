#pragma once

#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane::pelto {

/// An address that leads to no place; the reason says why, and what one looks like. It repeats nothing of the
/// address, in which there may be a secret.
class PlaceAddressException : public PlatformException {
 public:
  explicit PlaceAddressException(Message reason)
      : PlatformException("PlaceAddressException", std::move(reason)) {}
};

/// Where a place is, as users type it. It holds no secrets; those are a PlaceCredentials.
///
///     /mnt/share/bookmarks, file:///mnt/share/bookmarks        a directory
///     https://USER@cloud.example.org/dav/bookmarks             a folder on a WebDAV server
///     s3://BUCKET/PREFIX?region=eu-central-1                   a bucket at Amazon
///     s3://BUCKET/PREFIX?endpoint=https://s3.example.org       a bucket elsewhere, by path;
///     …&style=host                                             by a host's name of its own
///     hub://sync.example.org                                   a corvane-hub
///
/// Addresses on the network take `ca=FILE`, the authorities to believe. All is HTTPS; servers on this
/// computer itself may be `http://` or, for a hub, `tls=no`.
struct PlaceAddress {
  enum class Kind { directory, webDav, s3, hub };
  Kind kind = Kind::directory;
  std::string path;    ///< a directory's; otherwise what follows the host or bucket, "" or "/…", decoded
  std::string origin;  ///< "https://cloud.example.org:8443"; S3's is the endpoint's
  std::string host;    ///< "cloud.example.org:8443"
  std::string user;    ///< "" where the address names none
  std::string certificates;  ///< the file of `ca`; "" for the system's authorities
  std::string bucket;
  std::string region;
  bool isBucketInHost = false;

  /// In words, without secrets: "the bucket b at s3.example.org".
  Message description() const;
};

/// Raises PlaceAddressException.
PlaceAddress parsePlaceAddress(std::string_view text);

}  // namespace corvane::pelto
