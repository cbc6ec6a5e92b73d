#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

/// Bytes that are no property list. Its reason names the flavour, the offset (in bytes, from 0; for XML also
/// the line) and the cause, as in "binary property list, offset 1034: string reaches beyond the end of the
/// data".
class PropertyListException : public PlatformException {
 public:
  explicit PropertyListException(Message reason)
      : PlatformException("PropertyListException", std::move(reason)) {}
};

/// Reads a property list of any flavour: binary (version 00), XML, or the old plain text. Raises
/// PropertyListException. Takes hostile input: time stays near linear and memory within a small multiple of
/// the input, whatever the bytes. Nesting beyond `kPropertyListMaximumDepth` containers is refused.
Value readPropertyList(std::string_view bytes);

/// Writes the binary flavour: equal scalars and shared containers stand once, dictionaries keep their order.
/// Raises PropertyListException for what no property list can hold: a URL, and text that is no UTF-8.
std::string writeBinaryPropertyList(const Value& value);
/// Takes bytes that follow one another, piece by piece.
using TakeBytes = std::function<void(std::string_view)>;
/// As before, in pieces, of which some may be taken when it raises.
void writeBinaryPropertyList(const Value& value, const TakeBytes& take);

/// Writes the XML flavour, without a document type, indented with tabs. Dates keep whole seconds only, as
/// that flavour has no fractions. Raises PropertyListException for a URL, for text that XML 1.0 cannot carry,
/// for dates outside the years 1 to 9999, and when shared containers, which stand in full wherever they are
/// used, would make more than 1 GiB.
std::string writeXmlPropertyList(const Value& value);

inline constexpr std::size_t kPropertyListMaximumDepth = 200'000;

}  // namespace corvane
