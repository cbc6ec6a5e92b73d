#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "tools/loomerctl/browsers/JsonText.h"

namespace corvane::browsers {

using loomerctl::JsonDocument;
using loomerctl::JsonValue;

/// The JSON text (RFC 8259) as a tree of values, without using stack by its depth; an escaped surrogate that
/// stands alone becomes U+FFFD. Raises MessageProblem for anything that is no JSON object in UTF-8.
JsonDocument parseMessage(std::string text);

/// Of an object; null for none and for a null.
const JsonValue* memberNamed(const JsonValue& object, const char* name);
/// Of an object; raises MessageProblem for a member of another type. What is missing is empty, 0 or false.
std::string textIn(const JsonValue& object, const char* name);
std::int64_t numberIn(const JsonValue& object, const char* name);
bool truthIn(const JsonValue& object, const char* name);

/// Writes one message.
class JsonMessage {
 public:
  explicit JsonMessage(std::string_view type) {
    _json.StartObject();
    member("type", type);
  }

  /// A request, or the answer to one.
  JsonMessage(std::string_view type, std::int64_t id) : JsonMessage(type) { member("id", id); }

  void begin(std::string_view name) {
    key(name);
    _json.StartObject();
  }
  void end() { _json.EndObject(); }
  void beginArray(std::string_view name) {
    key(name);
    _json.StartArray();
  }
  void beginObject() { _json.StartObject(); }
  void endArray() { _json.EndArray(); }

  void member(std::string_view name, std::string_view text) {
    key(name);
    _json.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  }
  void member(std::string_view name, bool truth) {
    key(name);
    _json.Bool(truth);
  }
  void member(std::string_view name, const char* text) { member(name, std::string_view(text)); }
  void member(std::string_view name, std::integral auto number) {
    key(name);
    _json.Int64(static_cast<std::int64_t>(number));
  }

  /// Ends the message; once.
  std::string text() {
    _json.EndObject();
    return {_buffer.GetString(), _buffer.GetSize()};
  }

 private:
  void key(std::string_view name) { _json.Key(name.data(), static_cast<rapidjson::SizeType>(name.size())); }

  rapidjson::StringBuffer _buffer;
  rapidjson::Writer<rapidjson::StringBuffer> _json{_buffer};
};

}  // namespace corvane::browsers
