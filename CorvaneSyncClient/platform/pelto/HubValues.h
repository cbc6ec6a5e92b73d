#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane::pelto {

/// PostgreSQL's types by their object identifiers, which are the same in every server.
enum class HubType : std::uint32_t {
  boolean = 16,
  bytes = 17,
  big = 20,
  integer = 23,
  text = 25,
  uuid = 2950,
  booleans = 1000,
  byteses = 1001,
  integers = 1007,
  uuids = 2951,
};

/// One value in PostgreSQL's binary form.
struct HubValue {
  HubType type;
  bool isNull = false;
  std::string bytes;
};

/// Absent is NULL. Raises DotPeltoException for text that is no UUID.
HubValue uuidValue(const String& uuid);
HubValue bigValue(std::int64_t number);
HubValue booleanValue(bool value);
/// `text` must be UTF-8 without zero bytes.
HubValue textValue(const String& text);

/// A one-dimensional array, built element by element.
class HubArray {
 public:
  /// `array` is one of the array types.
  explicit HubArray(HubType array);
  void add(bool value);
  void add(std::int32_t number);
  /// Absent is NULL. An array of UUIDs takes them in their string form and raises DotPeltoException for any
  /// other text.
  void add(const String& value);

  /// The array as a value, which takes the elements out of this object.
  HubValue take();

 private:
  void addElement(std::string_view bytes);
  void addNull();

  HubType _array;
  std::uint32_t _count = 0;
  bool _hasNull = false;
  std::string _elements;
};

}  // namespace corvane::pelto
