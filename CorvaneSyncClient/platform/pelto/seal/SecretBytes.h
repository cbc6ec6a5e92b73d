#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace corvane::pelto {

/// Bytes that nobody else may see: between guard pages, in memory that is kept out of core dumps, wiped at
/// the end, and locked against swapping where the system allows it (where it does not, the diagnostic log
/// says so). Moves only.
class SecretBytes {
 public:
  /// `size` zeros. Raises std::bad_alloc.
  explicit SecretBytes(std::size_t size);
  /// A copy of `bytes`; the caller wipes its own. Raises std::bad_alloc.
  explicit SecretBytes(std::string_view bytes);
  SecretBytes(SecretBytes&& other) noexcept;
  SecretBytes& operator=(SecretBytes&& other) noexcept;
  ~SecretBytes();

  std::size_t size() const { return _size; }
  unsigned char* data() { return _bytes; }
  const unsigned char* data() const { return _bytes; }
  std::string_view view() const { return {reinterpret_cast<const char*>(_bytes), _size}; }

 private:
  std::size_t _size;
  unsigned char* _bytes;
};

/// A secret that several hold: copies share its bytes, and the last one wipes them.
class SharedSecret {
 public:
  /// None: of no bytes.
  SharedSecret() = default;
  /// A copy of `text`; the caller wipes its own. Raises std::bad_alloc.
  explicit SharedSecret(std::string_view text);

  std::string_view view() const { return _bytes ? _bytes->view() : std::string_view(); }

 private:
  std::shared_ptr<const SecretBytes> _bytes;
};

/// Overwrites and empties a string through which a secret passed.
void wipe(std::string& text);

/// Wipes a string at its own end.
class WipeAtEnd {
 public:
  explicit WipeAtEnd(std::string& text) : _text(text) {}
  ~WipeAtEnd() { wipe(_text); }
  WipeAtEnd(const WipeAtEnd&) = delete;
  WipeAtEnd& operator=(const WipeAtEnd&) = delete;

 private:
  std::string& _text;
};

/// Readies libsodium. Whatever calls it directly does this first; repeating it costs nothing. Raises
/// DotPeltoException when the system gives no random numbers.
void useSodium();

}  // namespace corvane::pelto
