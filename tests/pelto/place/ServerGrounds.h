#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "tests/pelto/place/PlaceGround.h"
#include "tests/pelto/place/ServerProcess.h"

namespace corvane::pelto {

/// A server that a file tells everything. "@DIR@" and "@PORT@" stand for these in all texts.
struct ServerSetup {
  std::string configuration;           ///< for the file "conf"
  std::string users;                   ///< for the file "users"
  std::vector<std::string> arguments;  ///< of the program
  std::string address = "http://127.0.0.1:@PORT@";
};

/// A WebDAV server.
class WebDavGround : public PlaceGround {
 public:
  explicit WebDavGround(const ServerSetup& setup);
  std::unique_ptr<Place> place(Deadline deadline, double pauseBeforeEnd) override;
  const PlaceAddress& address() const { return _address; }

 private:
  ServerProcess _server;
  PlaceAddress _address;
};

/// A bucket that can be reached by two addresses.
class S3Ground : public PlaceGround {
 public:
  /// With the bucket's name in the host's.
  virtual std::unique_ptr<Place> placeByHost(Deadline deadline) = 0;
};

// Servers from Debian, each at a port of the loopback interface with its own files. Raise std::runtime_error
// when they do not start.

std::unique_ptr<PlaceGround> makeApacheGround();
/// Apache that wants HTTP's Digest scheme.
std::unique_ptr<PlaceGround> makeApacheDigestGround();
/// Apache that lets everybody in.
std::unique_ptr<WebDavGround> makeOpenApacheGround();
/// Our own server.
std::unique_ptr<PlaceGround> makeHubGround();
std::unique_ptr<PlaceGround> makeLighttpdGround();
/// Ceph's gateway for S3, over a cluster in memory.
std::unique_ptr<S3Ground> makeCephGround();
std::unique_ptr<PlaceGround> makeNginxGround();
/// nginx with TLS, HTTP/2, and a certificate of its own, which the address names.
std::unique_ptr<WebDavGround> makeNginxTlsGround();
std::unique_ptr<PlaceGround> makeRcloneGround();

}  // namespace corvane::pelto
