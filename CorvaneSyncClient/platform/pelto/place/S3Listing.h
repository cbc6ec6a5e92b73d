#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::pelto {

/// One page of a bucket's keys.
struct S3Listing {
  std::vector<PlaceObject> objects;  ///< names are whole keys
  std::string next;                  ///< the token of the next page; "" when there is none
};

/// Reads the answer to ListObjectsV2. Raises XmlException.
S3Listing readS3Listing(std::string_view bytes);

/// The code in an error's answer, such as "NoSuchKey"; "" where there is none.
std::string readS3ErrorCode(std::string_view bytes);

}  // namespace corvane::pelto
