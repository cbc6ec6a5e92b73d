#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/Ref.h"

namespace corvane {

/// Immutable bytes that are shared, never copied: one allocation holds the header and the bytes.
class SharedBytes : public RefCounted {
 public:
  /// Copies `size` bytes; raises PlatformException "NSRangeException" beyond 4 GiB.
  static SharedBytes* make(const char* bytes, std::size_t size);
  /// As `make`, with the bytes left for the caller to fill through `mutableBytes` before anybody else sees
  /// them.
  static SharedBytes* makeUninitialized(std::size_t size);
  static void destroy(SharedBytes* bytes);

  std::size_t size() const { return _size; }
  const char* bytes() const { return reinterpret_cast<const char*>(this + 1); }
  char* mutableBytes() { return reinterpret_cast<char*>(this + 1); }
  std::string_view view() const { return {bytes(), _size}; }
  /// As `hashOf`; computed at the first call and kept.
  std::uint32_t hash() const;

 private:
  explicit SharedBytes(std::uint32_t size) : _size(size) {}

  std::uint32_t _size;
  mutable std::uint32_t _hash = 0;
};

/// Immutable UTF-8 text, shared by reference count and as small as a pointer. Like any pointer it may be
/// empty: the empty String is the absent string, which differs from the string of no characters.
///
/// Text that came from UTF-16 with unpaired surrogates holds them in their three-byte form, so that it can be
/// written back as it was.
class String {
 public:
  /// The absent string.
  String() = default;
  String(std::string_view text) : _bytes(SharedBytes::make(text.data(), text.size())) {}
  String(const std::string& text) : String(std::string_view(text)) {}
  /// `text` must not be null.
  String(const char* text) : String(std::string_view(text)) {}
  /// Takes a share of `bytes`, which must hold UTF-8.
  explicit String(SharedBytes* bytes) : _bytes(bytes) {}

  explicit operator bool() const { return static_cast<bool>(_bytes); }
  /// The text; nothing when absent.
  std::string_view view() const { return _bytes ? _bytes->view() : std::string_view(); }
  std::string toString() const { return std::string(view()); }
  bool empty() const { return view().empty(); }
  std::uint32_t hash() const { return _bytes ? _bytes->hash() : 0; }

  /// Whether both are the very same shared text, not merely equal. The root folder's uid is known by this.
  bool isSameInstance(const String& other) const { return _bytes.get() == other._bytes.get(); }

  /// By value; two absent strings are equal, an absent one differs from an empty one.
  friend bool operator==(const String& a, const String& b) {
    if (a.isSameInstance(b)) return true;
    return a && b && a.view() == b.view();
  }
  friend bool operator==(const String& a, const char* b) { return a && a.view() == b; }
  friend bool operator==(const String& a, std::string_view b) { return a && a.view() == b; }
  friend bool operator==(const String& a, const std::string& b) { return a && a.view() == b; }

 private:
  Ref<SharedBytes> _bytes;
};

/// The one String of that text that serves as a key wherever it comes up, in files as in the program, so that
/// dictionaries find it by instance. Kept until the process ends.
String interned(const String& key);

/// The hash that `String::hash` answers for text that is not yet a String. Differs from process to process.
std::uint32_t hashOf(std::string_view text);

}  // namespace corvane

template <>
struct std::hash<corvane::String> {
  std::size_t operator()(const corvane::String& text) const { return text.hash(); }
};
