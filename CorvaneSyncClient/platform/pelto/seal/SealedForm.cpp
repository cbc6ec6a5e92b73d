#include "CorvaneSyncClient/platform/pelto/seal/SealedForm.h"

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/pelto/seal/Roster.h"

namespace corvane::pelto {

void failForm(const std::string& where, const std::string& what) {
  throw SealedFormException(where + ": " + what);
}

const Dictionary& dictionaryOf(const Value& value, std::initializer_list<const char*> keys,
                               const std::string& where) {
  const Dictionary* const dictionary = value.as<Dictionary>();
  if (!dictionary) failForm(where, "not a dictionary");
  for (const char* key : keys) {
    if (!dictionary->find(key)) failForm(where, std::string("no \"") + key + '"');
  }
  if (dictionary->size() != keys.size()) failForm(where, "an unknown key");
  return *dictionary;
}

String uuidFrom(const Value& value, const std::string& where) {
  const String text = value.string();
  const auto bytes = uuidBytes(text.view());
  if (!bytes || !(text == uuidString(*bytes))) failForm(where, "no upper-case UUID");
  return text;
}

String uuidIn(const Dictionary& dictionary, const char* key, const std::string& where) {
  return uuidFrom(*dictionary.find(key), where);
}

std::string bytesIn(const Dictionary& dictionary, const char* key, std::size_t size,
                    const std::string& where) {
  const Data* const data = dictionary.find(key)->as<Data>();
  if (!data || data->bytes().size() != size)
    failForm(where, "no " + std::to_string(size) + " bytes under \"" + key + '"');
  return std::string(data->bytes());
}

const Array& arrayOf(const Value& value, std::size_t most, const std::string& where) {
  const Array* const array = value.as<Array>();
  if (!array) failForm(where, "not an array");
  if (array->size() > most) failForm(where, "more than " + std::to_string(most) + " entries");
  return *array;
}

}  // namespace corvane::pelto
