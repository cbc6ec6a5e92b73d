#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane::pelto {

/// PostgreSQL's types by object identifier; these are the same on every server.
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

/// A uuid; NULL for absent text. Raises DotPeltoException for text that is not a UUID.
HubValue uuidValue(const String& uuid);
/// A bigint.
HubValue bigValue(std::int64_t number);
/// A boolean.
HubValue booleanValue(bool value);
/// A text; NULL for absent text. `text` must be UTF-8 without zero bytes.
HubValue textValue(const String& text);

/// A one-dimensional array, built element by element.
class HubArray {
 public:
  /// `array` is one of the array types.
  explicit HubArray(HubType array);
  /// Appends to an array of booleans.
  void add(bool value);
  /// Appends to an array of integers.
  void add(std::int32_t number);
  /// Appends to an array of bytea or uuid; absent is NULL. An array of uuid takes them in string form and
  /// raises DotPeltoException for other text.
  void add(const String& value);

  /// The array as a value; leaves this object empty.
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
