#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane::pelto {

/// XML of another form than expected; the reason says what is wrong, and where.
class XmlException : public PlatformException {
 public:
  explicit XmlException(Message reason) : PlatformException("XmlException", std::move(reason)) {}
};

/// The elements that are open, from the root inwards: each its namespace, a blank, and its local name, or the
/// name alone where it is in no namespace.
using XmlPath = std::vector<std::string>;

/// What to do where an element begins and where it ends. Its text is what it holds itself, not its children.
struct XmlHandlers {
  std::function<void(const XmlPath& path)> begin;
  std::function<void(const XmlPath& path, const std::string& text)> end;
};

/// Reads a document that somebody else sent. Document type declarations, with the entities that they could
/// make, are refused, and so are elements in great depth and texts of great length. Raises XmlException, and
/// what a handler raises.
void readXml(std::string_view bytes, const XmlHandlers& handlers);

/// The element's name without its namespace.
std::string_view localName(std::string_view name);

}  // namespace corvane::pelto
