#include "CorvaneSyncClient/platform/foundation/values/Format.h"

#include <algorithm>
#include <cstdio>

namespace corvane {

namespace {

constexpr std::string_view kNull = "(null)";

template <typename Object>
void describePointer(std::string& text, const Object* object) {
  if (!object) {
    text += kNull;
  } else if constexpr (std::is_same_v<Object, Describable>) {
    text += object->description();
  } else if constexpr (std::is_same_v<Object, String>) {
    text += *object ? object->view() : kNull;
  } else {
    text += description(*object);
  }
}

template <typename Number>
void appendPrintf(std::string& text, const std::string& conversion, Number number) {
  char buffer[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(buffer, sizeof buffer, conversion.c_str(), number);
#pragma GCC diagnostic pop
  if (length > 0) text.append(buffer, std::min(static_cast<std::size_t>(length), sizeof buffer - 1));
}

bool isFlagWidthOrPrecision(char c) {
  return std::string_view("-+ #0123456789.").find(c) != std::string_view::npos;
}

}  // namespace

void FormatArgument::describe(std::string& text) const {
  std::visit(
      [&text](const auto& argument) {
        using Argument = std::decay_t<decltype(argument)>;
        if constexpr (std::is_pointer_v<Argument>) {
          describePointer(text, argument);
        } else if constexpr (std::is_same_v<Argument, std::string_view>) {
          text += argument;
        } else {
          text += description(Value(argument));
        }
      },
      _argument);
}

void FormatArgument::print(std::string& text, std::string_view conversion) const {
  const char kind = conversion.back();
  const std::string flags(conversion.substr(0, conversion.size() - 1));
  const bool floating = std::string_view("eEfFgG").find(kind) != std::string_view::npos;
  // Any other letter could ask printf for a pointer, to read from or to write to.
  if (!floating && std::string_view("diuoxX").find(kind) == std::string_view::npos) return describe(text);
  if (const auto* number = std::get_if<std::int64_t>(&_argument)) {
    if (floating) return appendPrintf(text, flags + kind, static_cast<double>(*number));
    return appendPrintf(text, flags + "ll" + kind, static_cast<long long>(*number));
  }
  if (const auto* number = std::get_if<std::uint64_t>(&_argument)) {
    if (floating) return appendPrintf(text, flags + kind, static_cast<double>(*number));
    return appendPrintf(text, flags + "ll" + kind, static_cast<unsigned long long>(*number));
  }
  const auto* real = std::get_if<double>(&_argument);
  if (real && floating) return appendPrintf(text, flags + kind, *real);
  describe(text);
}

std::string vformat(std::string_view format, const FormatArgument* arguments, std::size_t count) {
  std::string text;
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      text += format[i];
      continue;
    }
    std::size_t end = i + 1;
    while (end < format.size() && isFlagWidthOrPrecision(format[end])) ++end;
    const std::string_view conversion = format.substr(i, end + 1 - i);
    if (conversion == "%%") {
      text += '%';
    } else if (end == format.size() || next == count) {
      text += conversion;
    } else if (format[end] == '@' || format[end] == 's') {
      arguments[next++].describe(text);
    } else {
      arguments[next++].print(text, conversion);
    }
    i = end;
  }
  return text;
}

}  // namespace corvane
