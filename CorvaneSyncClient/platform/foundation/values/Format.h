#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

/// Something that describes itself on one line, for "%@".
class Describable {
 public:
  virtual std::string description() const = 0;

 protected:
  ~Describable() = default;
};

/// One argument of a format, held by reference: describing it waits until the text is really built. Made in
/// the call and used before it ends.
class FormatArgument {
 public:
  template <std::integral T>
  FormatArgument(T number)
      : _argument(std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>(number)) {}
  FormatArgument(double number) : _argument(number) {}
  FormatArgument(const char* text) : _argument(text ? std::string_view(text) : std::string_view("(null)")) {}
  FormatArgument(std::string_view text) : _argument(text) {}
  FormatArgument(const std::string& text) : _argument(std::string_view(text)) {}
  FormatArgument(const String& text) : _argument(&text) {}
  FormatArgument(const Value& value) : _argument(&value) {}
  FormatArgument(const Value* value) : _argument(value) {}
  FormatArgument(const Array& array) : _argument(&array) {}
  FormatArgument(const Dictionary& dictionary) : _argument(&dictionary) {}
  FormatArgument(const Dictionary* dictionary) : _argument(dictionary) {}
  FormatArgument(const Date& date) : _argument(&date) {}
  FormatArgument(const Date* date) : _argument(date) {}
  FormatArgument(const Describable& object) : _argument(&object) {}
  FormatArgument(const Describable* object) : _argument(object) {}

  /// Adds what "%@" (or "%s") prints: "(null)" for an absent string or a null pointer.
  void describe(std::string& text) const;
  /// Adds what a printf conversion such as "%d", "%u" or "%24.18f" prints; `conversion` is that whole
  /// conversion.
  void print(std::string& text, std::string_view conversion) const;

 private:
  std::variant<std::int64_t, std::uint64_t, double, std::string_view, const String*, const Value*,
               const Array*, const Dictionary*, const Date*, const Describable*>
      _argument;
};

/// Builds a text from a format in which "%@" and "%s" print any argument on their own terms, "%d", "%i",
/// "%u", "%x" and the floating conversions print numbers with printf's flags, width and precision, and "%%"
/// prints "%". A conversion without an argument prints as it stands; arguments too many are ignored.
std::string vformat(std::string_view format, const FormatArgument* arguments, std::size_t count);

template <typename... Arguments>
std::string format(std::string_view text, const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    return vformat(text, nullptr, 0);
  } else {
    const FormatArgument list[] = {FormatArgument(arguments)...};
    return vformat(text, list, sizeof...(Arguments));
  }
}

}  // namespace corvane
