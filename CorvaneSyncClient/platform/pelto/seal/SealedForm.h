#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane::pelto {

// Reads the parts of a commit strictly. All raise SealedFormException; `where` tells its reader which part it
// is.

/// The dictionary with exactly these keys.
const Dictionary& dictionaryOf(const Value& value, std::initializer_list<const char*> keys,
                               const std::string& where);
/// Under a key that `dictionaryOf` has found: an upper-case UUID, and alone.
String uuidIn(const Dictionary& dictionary, const char* key, const std::string& where);
String uuidFrom(const Value& value, const std::string& where);
/// Under such a key: data of `size` bytes.
std::string bytesIn(const Dictionary& dictionary, const char* key, std::size_t size,
                    const std::string& where);
/// An array of at most `most` values.
const Array& arrayOf(const Value& value, std::size_t most, const std::string& where);

/// The key of the computer that a dictionary is about.
inline constexpr const char* kComputer = "Computer";

/// What is wrong with one of several that stand ordered by their identifiers.
inline constexpr const char* kOutOfPlace = "not in its place by identifier";

[[noreturn]] void failForm(const std::string& where, const std::string& what);

}  // namespace corvane::pelto
