#include "browsers/host/Json.h"

#include <rapidjson/error/en.h>

#include <cmath>

#include "CorvaneSyncClient/platform/foundation/text/JsonEscapes.h"
#include "browsers/host/MessageProblem.h"

namespace corvane::browsers {

namespace {

// Goes over the text once for what RapidJSON does not care for: zeros, which it takes for the end, and halves
// of pairs.
void prepareMessage(std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == '\0') {
      throw MessageProblem("The message is no JSON: there is a byte of zero at offset " + std::to_string(at) +
                           ".");
    }
    at += text[at] == '\\' ? repairJsonEscape(text, at) : 1;
  }
}

[[noreturn]] void refuseMember(const char* name, const char* wanted) {
  throw MessageProblem(std::string("The message's \"") + name + "\" is no " + wanted + ".");
}

}  // namespace

JsonDocument parseMessage(std::string text) {
  prepareMessage(text);
  JsonDocument document;
  document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(text.data(),
                                                                                         text.size());
  if (document.HasParseError()) {
    throw MessageProblem("The message is no JSON at offset " + std::to_string(document.GetErrorOffset()) +
                         ": " + rapidjson::GetParseError_En(document.GetParseError()));
  }
  if (!document.IsObject()) throw MessageProblem("The message is no JSON object.");
  return document;
}

const JsonValue* memberNamed(const JsonValue& object, const char* name) {
  const auto found = object.FindMember(name);
  return found == object.MemberEnd() || found->value.IsNull() ? nullptr : &found->value;
}

std::string textIn(const JsonValue& object, const char* name) {
  const JsonValue* const value = memberNamed(object, name);
  if (!value) return {};
  if (!value->IsString()) refuseMember(name, "text");
  return {value->GetString(), value->GetStringLength()};
}

std::int64_t numberIn(const JsonValue& object, const char* name) {
  const JsonValue* const value = memberNamed(object, name);
  if (!value) return 0;
  if (value->IsInt64()) return value->GetInt64();
  // JavaScript may write a whole number as a real one; dates of some browsers have fractions.
  constexpr double kMost = 9e15;
  if (!value->IsDouble() || !(std::abs(value->GetDouble()) < kMost)) refuseMember(name, "number");
  return std::llround(std::floor(value->GetDouble()));
}

bool truthIn(const JsonValue& object, const char* name) {
  const JsonValue* const value = memberNamed(object, name);
  if (!value) return false;
  if (!value->IsBool()) refuseMember(name, "truth value");
  return value->GetBool();
}

}  // namespace corvane::browsers
