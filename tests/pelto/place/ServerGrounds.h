#pragma once

#include <memory>

#include "tests/pelto/place/PlaceGround.h"

namespace corvane::pelto {

// Servers from Debian, each at a port of the loopback interface with its own files. Raise std::runtime_error
// when they do not start.

std::unique_ptr<PlaceGround> makeApacheGround();
/// Apache that wants HTTP's Digest scheme.
std::unique_ptr<PlaceGround> makeApacheDigestGround();
/// Our own server.
std::unique_ptr<PlaceGround> makeHubGround();
std::unique_ptr<PlaceGround> makeLighttpdGround();
/// Ceph's gateway for S3, over a cluster in memory.
std::unique_ptr<PlaceGround> makeCephGround();
std::unique_ptr<PlaceGround> makeNginxGround();
std::unique_ptr<PlaceGround> makeRcloneGround();

}  // namespace corvane::pelto
