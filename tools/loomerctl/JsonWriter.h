#pragma once

#include <rapidjson/prettywriter.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// Writes one JSON text (RFC 8259) as it is built, so that a million records need no more memory than one.
/// Bytes that are not UTF-8 become U+FFFD; unpaired surrogates are escaped, so that they survive.
class JsonWriter {
 public:
  /// Writes to `out`, which outlives it.
  explicit JsonWriter(Output& out) : _out(out) { _json.SetIndent(' ', 2); }

  /// Objects and arrays nest; each `begin` is followed by its `end`.
  void beginObject() { _json.StartObject(); }
  void endObject() { _json.EndObject(); }
  void beginArray() { _json.StartArray(); }
  void endArray() { _json.EndArray(); }
  /// A name that needs no escaping.
  void key(std::string_view name) { _json.Key(name.data(), static_cast<rapidjson::SizeType>(name.size())); }

  /// The absent string is null.
  void value(const String& text);
  void value(std::string_view text);
  void value(const std::string& text) { value(std::string_view(text)); }
  void value(const char* text) { value(std::string_view(text)); }
  void value(std::integral auto number) { _json.Int64(static_cast<std::int64_t>(number)); }
  void value(bool truth) { _json.Bool(truth); }
  /// In UTC, "2026-11-21T10:49:00Z"; null where the calendar cannot hold it.
  void value(Date date);
  /// Null for nothing.
  template <typename T>
  void value(const std::optional<T>& held) {
    if (held) {
      value(*held);
    } else {
      null();
    }
  }
  void null() { _json.Null(); }

  /// A key and its value.
  template <typename T>
  void member(std::string_view name, const T& held) {
    key(name);
    value(held);
  }

  /// Ends the text with a line end.
  void finish() { _out.write("\n"); }

 private:
  /// The output as RapidJSON's stream.
  struct Stream {
    using Ch = char;
    void Put(char c) { out.write({&c, 1}); }
    void Flush() {}
    Output& out;
  };
  using Pool = rapidjson::MemoryPoolAllocator<>;
  using Writer = rapidjson::PrettyWriter<Stream, rapidjson::UTF8<>, rapidjson::UTF8<>, Pool>;

  Output& _out;
  Stream _stream{_out};
  /// Holds what RapidJSON keeps of open brackets; it does not check what it allocates.
  alignas(std::max_align_t) char _memory[1024];
  Pool _pool{_memory, sizeof _memory};
  Writer _json{_stream, &_pool};
};

}  // namespace corvane::loomerctl
