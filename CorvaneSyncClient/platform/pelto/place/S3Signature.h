#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

/// Whose requests they are.
struct S3Keys {
  std::string id;
  SharedSecret secret;
  std::string region;
};

/// The headers that prove to an S3 server who sent a request and when (AWS Signature Version 4, all of it in
/// one piece). `path` is percent-encoded; so is `query`, its parameters ordered by name.
std::vector<std::string> signedS3Headers(const S3Keys& keys, std::string_view method, std::string_view host,
                                         std::string_view path, std::string_view query, std::string_view body,
                                         Date when);

}  // namespace corvane::pelto
