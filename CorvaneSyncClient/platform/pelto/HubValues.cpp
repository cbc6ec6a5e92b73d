#include "CorvaneSyncClient/platform/pelto/HubValues.h"

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

// The forms are those of the types' send and receive functions: numbers have the most significant byte first;
// an array is its number of dimensions, whether it holds NULL, the elements' type, per dimension its length
// and lower bound, and then each element after its length, which is -1 for NULL.

namespace corvane::pelto {

namespace {

void appendBigEndian(std::string& bytes, std::uint64_t number, std::size_t size) {
  char encoded[8];
  storeBigEndian(encoded, number, size);
  bytes.append(encoded, size);
}

UuidBytes requiredUuid(const String& text) {
  if (const std::optional<UuidBytes> bytes = uuidBytes(text.view())) return *bytes;
  throw PlatformException(DotPeltoException,
                          "\"" + text.toString() + "\" can't be given to the online service: it is no UUID.");
}

HubType elementOf(HubType array) {
  switch (array) {
    case HubType::booleans:
      return HubType::boolean;
    case HubType::byteses:
      return HubType::bytes;
    case HubType::integers:
      return HubType::integer;
    default:
      return HubType::uuid;
  }
}

}  // namespace

HubValue uuidValue(const String& uuid) {
  if (!uuid) return {HubType::uuid, true, {}};
  const UuidBytes bytes = requiredUuid(uuid);
  return {HubType::uuid, false, std::string(bytes.data(), bytes.size())};
}

HubValue bigValue(std::int64_t number) {
  HubValue value{HubType::big, false, {}};
  appendBigEndian(value.bytes, static_cast<std::uint64_t>(number), 8);
  return value;
}

HubValue booleanValue(bool value) { return {HubType::boolean, false, std::string(1, value ? '\1' : '\0')}; }

HubValue textValue(const String& text) { return {HubType::text, !text, text.toString()}; }

HubArray::HubArray(HubType array) : _array(array) {}

void HubArray::add(bool value) { addElement(std::string_view(value ? "\1" : "\0", 1)); }

void HubArray::add(std::int32_t number) {
  ++_count;
  appendBigEndian(_elements, sizeof number, 4);
  appendBigEndian(_elements, static_cast<std::uint32_t>(number), sizeof number);
}

void HubArray::add(const String& value) {
  if (!value) return addNull();
  if (_array != HubType::uuids) return addElement(value.view());
  const UuidBytes bytes = requiredUuid(value);
  addElement(std::string_view(bytes.data(), bytes.size()));
}

void HubArray::addElement(std::string_view bytes) {
  ++_count;
  appendBigEndian(_elements, bytes.size(), 4);
  _elements += bytes;
}

void HubArray::addNull() {
  ++_count;
  _hasNull = true;
  appendBigEndian(_elements, 0xFFFFFFFF, 4);
}

HubValue HubArray::take() {
  HubValue value{_array, false, {}};
  value.bytes.reserve(20 + _elements.size());
  appendBigEndian(value.bytes, _count == 0 ? 0 : 1, 4);
  appendBigEndian(value.bytes, _hasNull ? 1 : 0, 4);
  appendBigEndian(value.bytes, static_cast<std::uint32_t>(elementOf(_array)), 4);
  if (_count > 0) {
    appendBigEndian(value.bytes, _count, 4);
    appendBigEndian(value.bytes, 1, 4);
  }
  value.bytes += _elements;
  *this = HubArray(_array);
  return value;
}

}  // namespace corvane::pelto
