#include "CorvaneSyncClient/platform/foundation/text/CharacterSet.h"

#include <iconv.h>

#include <cerrno>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

// iconv's descriptor of one conversion to UTF-8.
class Converter {
 public:
  explicit Converter(const std::string& from) : _descriptor(iconv_open("UTF-8", from.c_str())) {
    if (*this || errno == EINVAL) return;  // EINVAL: no such converter
    throw PlatformException(NSGenericException, Message("Cannot convert text from %1: %2", from,
                                                        std::system_category().message(errno)));
  }
  ~Converter() {
    if (*this) iconv_close(_descriptor);  // fails only for what is no descriptor
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  explicit operator bool() const { return _descriptor != reinterpret_cast<iconv_t>(-1); }

  // Adds what the bytes in front of `bytes` mean, and takes these away, up to the first fault. 0, or iconv's
  // EILSEQ for bytes that are no character and EINVAL for one that the end cuts off.
  int convert(std::string_view& bytes, std::string& text) {
    char* from = const_cast<char*>(bytes.data());  // which iconv leaves as they are
    std::size_t left = bytes.size();
    const int error = run(&from, &left, text);
    bytes.remove_prefix(bytes.size() - left);
    return error;
  }

  // Adds the character that was held back to see whether a mark follows it.
  void finish(std::string& text) { run(nullptr, nullptr, text); }

 private:
  int run(char** from, std::size_t* left, std::string& text) {
    while (true) {
      char buffer[1 << 14];
      char* to = buffer;
      std::size_t room = sizeof buffer;
      const bool failed = iconv(_descriptor, from, left, &to, &room) == static_cast<std::size_t>(-1);
      const int error = failed ? errno : 0;
      text.append(buffer, to);
      if (error != E2BIG) return error;
    }
  }

  iconv_t _descriptor;
};

DecodedText decodeUtf8Text(std::string_view bytes) {
  std::size_t end = 0;
  while (end < bytes.size()) {
    const Utf8Step step = decodeUtf8(bytes, end);
    if (!step) break;
    end += step.length;
  }
  DecodedText decoded{repairedUtf8(bytes.substr(0, end)), std::nullopt};
  if (end < bytes.size()) decoded.fault = end;
  return decoded;
}

}  // namespace

std::optional<DecodedText> decodeText(std::string_view bytes, const std::string& characterSet) {
  if (characterSet == "UTF-8") return decodeUtf8Text(bytes);
  Converter converter(characterSet);
  if (!converter) return std::nullopt;
  DecodedText decoded;
  std::string_view left = bytes;
  // Whatever stops UTF-16 before its last byte is a surrogate that stands alone.
  constexpr std::size_t kUnit = 2;
  const bool isUtf16 = characterSet.starts_with("UTF-16");
  while (converter.convert(left, decoded.text) != 0) {
    if (!isUtf16 || left.size() < kUnit) {
      decoded.fault = bytes.size() - left.size();
      return decoded;
    }
    appendUtf8(decoded.text, kReplacementCharacter);
    left.remove_prefix(kUnit);
  }
  converter.finish(decoded.text);
  return decoded;
}

}  // namespace corvane
