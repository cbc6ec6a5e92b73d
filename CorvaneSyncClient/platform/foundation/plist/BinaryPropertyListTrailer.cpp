#include "CorvaneSyncClient/platform/foundation/plist/BinaryPropertyListTrailer.h"

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

namespace corvane {

void failBinary(std::uint64_t offset, const Message& cause) {
  throw PropertyListException(Message("binary property list, offset %1: %2", std::to_string(offset), cause));
}

BinaryTrailer readBinaryTrailer(std::string_view bytes) {
  if (!bytes.starts_with(kBinaryHeader)) failBinary(0, Message("only version 00 is known"));
  if (bytes.size() < kBinaryHeader.size() + kBinaryTrailerSize)
    failBinary(bytes.size(), Message("the data ends before the trailer"));
  const std::size_t start = bytes.size() - kBinaryTrailerSize;
  const char* at = bytes.data() + start;
  BinaryTrailer trailer;
  trailer.offsetSize = static_cast<unsigned char>(at[6]);
  trailer.referenceSize = static_cast<unsigned char>(at[7]);
  trailer.count = loadBigEndian(at + 8, 8);
  trailer.top = loadBigEndian(at + 16, 8);
  trailer.table = loadBigEndian(at + 24, 8);
  if (trailer.offsetSize < 1 || trailer.offsetSize > 8)
    failBinary(start + 6, Message("offsets must take 1 to 8 bytes"));
  if (trailer.referenceSize < 1 || trailer.referenceSize > 8) {
    failBinary(start + 7, Message("object numbers must take 1 to 8 bytes"));
  }
  if (trailer.table < kBinaryHeader.size() || trailer.table > start) {
    failBinary(start + 24, Message("the offset table lies outside the data"));
  }
  if (trailer.count > (start - trailer.table) / trailer.offsetSize) {
    failBinary(start + 8, Message("the offset table reaches beyond the end of the data"));
  }
  if (trailer.top >= trailer.count) failBinary(start + 16, Message("the top object does not exist"));
  return trailer;
}

}  // namespace corvane
