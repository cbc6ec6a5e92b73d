#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tools/corvane-hub/ObjectNames.h"

namespace corvane::hubserver {

enum class Method { get, put, remove, other };

/// What the server has to know of a request before its body.
struct RequestHead {
  Method method = Method::other;
  std::string target;
  std::optional<std::uint64_t> length;  ///< of the body, when the client says
  std::string token;                    ///< what stands after "Bearer"; empty without
  std::string ifNoneMatch;              ///< empty without
  bool expectsContinue = false;
  bool isChunked = false;     ///< or encoded otherwise for the way
  bool isOldVersion = false;  ///< HTTP/1.0
  bool keepsAlive = false;
};

/// The head that `text` holds, which ends with its empty line. Absent for what HTTP/1.1 does not allow, and
/// for what two programs could understand differently: folded lines, a header twice that stands once, a
/// length and an encoding together.
std::optional<RequestHead> parsedRequestHead(std::string_view text);

/// An object that is asked for, and how long to wait for it.
struct ObjectTarget {
  ObjectPath path;
  std::optional<std::uint32_t> waitSeconds;
};
/// A folder that is to be listed, as its directory.
struct ListTarget {
  std::string directory;
};
/// What a request is about: absent for a path that the server does not have, or a name that no object can
/// have.
std::optional<std::variant<ObjectTarget, ListTarget>> parsedTarget(std::string_view target);

/// Whether an If-None-Match header names the tag: "*", or a list of tags, weak ones too (RFC 9110, 13.1.2).
bool matchesTag(std::string_view ifNoneMatch, std::string_view tag);

}  // namespace corvane::hubserver
