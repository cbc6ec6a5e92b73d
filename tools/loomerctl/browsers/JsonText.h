#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::loomerctl {

/// Memory for RapidJSON, which does not check what it allocates.
class CheckedAllocator {
 public:
  static constexpr bool kNeedFree = true;

  void* Malloc(std::size_t size) { return size == 0 ? nullptr : checked(std::malloc(size)); }
  void* Realloc(void* memory, std::size_t, std::size_t size) {
    if (size > 0) return checked(std::realloc(memory, size));
    std::free(memory);
    return nullptr;
  }
  static void Free(void* memory) { std::free(memory); }

 private:
  static void* checked(void* memory) {
    if (!memory) throw std::bad_alloc();
    return memory;
  }
};

using JsonPool = rapidjson::MemoryPoolAllocator<CheckedAllocator>;
using JsonDocument = rapidjson::GenericDocument<rapidjson::UTF8<>, JsonPool, CheckedAllocator>;
using JsonValue = JsonDocument::ValueType;

/// The JSON text (RFC 8259) as a tree of values, without using stack by its depth. A byte order mark is
/// passed over; an escaped surrogate that stands alone becomes U+FFFD. Raises Refused, with `name`, the place
/// and the cause, for anything that is no JSON in UTF-8, and for one that is nested deeper than any
/// bookmarks.
JsonDocument parseJson(std::string text, const std::string& name);

/// The member of an object; null for none, and for anything but an object.
const JsonValue* memberOf(const JsonValue& value, const char* key);

/// Walks the entries of a tree that lists them under "children": folders before their contents, everything in
/// its order.
class JsonWalk {
 public:
  /// Of the children of `folder`, which stands at `pointer` (RFC 6901) in the file called `name` and is the
  /// node `node`. The folder must outlive this object. Raises Refused as `next`.
  JsonWalk(const JsonValue& folder, std::string pointer, std::uint32_t node, std::string name);

  /// The next entry, an object; null at the end. Raises Refused where there is something else.
  const JsonValue* next();
  /// The node in which the entry lies.
  std::uint32_t parent() const { return _parent; }
  /// Has the children of the entry, if it has any, come next, as those of this node. Raises Refused if they
  /// are no list.
  void enter(std::uint32_t node);

  /// The text under the key of the entry; empty where there is none. Raises Refused for anything but a text.
  std::string text(const char* key) const;
  /// Where the entry stands (RFC 6901).
  std::string pointer() const;
  /// Raises Refused: what stands in the entry, at the rest of its pointer, is no list.
  [[noreturn]] void refuseForList(const std::string& below) const;

 private:
  /// A list of children that is being walked.
  struct List {
    const JsonValue* children;
    rapidjson::SizeType at;  ///< of the next one
    std::uint32_t node;
  };
  void open(const JsonValue& folder, std::uint32_t node);

  std::string _start;
  std::string _name;
  std::vector<List> _open;
  std::uint32_t _parent;
  const JsonValue* _entry = nullptr;
};

}  // namespace corvane::loomerctl
