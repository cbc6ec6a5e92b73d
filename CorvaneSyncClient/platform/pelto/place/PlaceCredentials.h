#pragma once

#include <string>

#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

/// What proves at a place who one is.
struct PlaceCredentials {
  std::string user;     ///< WebDAV: the name; S3: the key's identifier; otherwise empty
  SharedSecret secret;  ///< WebDAV: the password; S3: the secret key; a hub: the computer's token
};

}  // namespace corvane::pelto
