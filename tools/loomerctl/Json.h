#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Date.h"
#include "CorvaneSyncClient/platform/foundation/String.h"
#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// Writes one JSON text (RFC 8259) as it is built, so that a million records need no more memory than one.
/// Bytes that are no UTF-8 become U+FFFD; unpaired surrogates are escaped, so that they survive.
class JsonWriter {
 public:
  explicit JsonWriter(Output& out) : _out(out) {}

  void beginObject() { open('{'); }
  void endObject() { close('}'); }
  void beginArray() { open('['); }
  void endArray() { close(']'); }
  void key(std::string_view name);

  /// The absent string is null.
  void value(const String& text);
  void value(std::string_view text);
  void value(const std::string& text) { value(std::string_view(text)); }
  void value(const char* text) { value(std::string_view(text)); }
  void value(std::integral auto number) { number64(static_cast<std::int64_t>(number)); }
  void value(bool truth);
  /// In UTC, "2026-11-21T10:49:00Z"; null where the calendar cannot hold it.
  void value(Date date);
  template <typename T>
  void value(const std::optional<T>& held) {
    if (held) {
      value(*held);
    } else {
      null();
    }
  }
  void null();

  template <typename T>
  void member(std::string_view name, const T& held) {
    key(name);
    value(held);
  }

  /// Ends the text with a line end.
  void finish() { _out.write("\n"); }

 private:
  void open(char bracket);
  void close(char bracket);
  void number64(std::int64_t number);
  /// Whatever must stand before the next value.
  void separate();
  void startLine();
  void writeText(std::string_view text);

  struct Level {
    bool used = false;  ///< holds a value already
  };
  Output& _out;
  std::vector<Level> _levels;
  bool _afterKey = false;
};

}  // namespace corvane::loomerctl
