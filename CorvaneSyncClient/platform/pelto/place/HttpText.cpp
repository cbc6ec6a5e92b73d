#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <sodium.h>
#include <strings.h>

#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kLongestLine = 200;
constexpr std::string_view kLocalName = "localhost";

bool isUnreserved(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') ||
         std::string_view("-._~").find(character) != std::string_view::npos;
}

std::string encoded(std::string_view bytes, bool keepsSlashes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char character : bytes) {
    if (isUnreserved(character) || (keepsSlashes && character == '/')) {
      text += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return text;
}

int hexadecimal(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

}  // namespace

// libcurl itself answers "localhost", and names under it, without asking anybody.
bool isLoopbackHost(std::string_view host) {
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  const std::string text(host);
  in_addr four{};
  in6_addr six{};
  if (inet_pton(AF_INET, text.c_str(), &four) == 1) return (ntohl(four.s_addr) >> 24) == 127;
  if (inet_pton(AF_INET6, text.c_str(), &six) == 1) return IN6_IS_ADDR_LOOPBACK(&six) != 0;
  if (text.size() < kLocalName.size()) return false;
  const std::size_t start = text.size() - kLocalName.size();
  return ::strcasecmp(text.c_str() + start, kLocalName.data()) == 0 && (start == 0 || text[start - 1] == '.');
}

std::string percentEncoded(std::string_view bytes) { return encoded(bytes, false); }

std::string percentEncodedPath(std::string_view path) { return encoded(path, true); }

std::string percentDecoded(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? hexadecimal(text[i + 1]) : -1;
    const int low = high >= 0 ? hexadecimal(text[i + 2]) : -1;
    if (low >= 0) {
      bytes += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      bytes += text[i];
    }
  }
  return bytes;
}

std::optional<Date> dateFromHttp(const std::string& text) {
  const time_t seconds = text.size() > kLongestLine ? -1 : curl_getdate(text.c_str(), nullptr);
  if (seconds < 0) return std::nullopt;
  return Date{static_cast<double>(seconds) - kSecondsFrom1970To2001};
}

std::string basicAuthorization(std::string_view user, std::string_view password) {
  std::string both;
  both.reserve(user.size() + 1 + password.size());
  both.append(user).append(":").append(password);
  const WipeAtEnd wiping(both);
  std::string text(sodium_base64_ENCODED_LEN(both.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(both.data()),
                    both.size(), sodium_base64_VARIANT_ORIGINAL);
  text.pop_back();  // the terminating zero
  return text;
}

std::vector<std::string> authorizationHeader(std::string_view scheme, std::string_view proof) {
  std::vector<std::string> headers(1);
  headers[0].reserve(100 + scheme.size() + proof.size());
  headers[0].append("Authorization: ").append(scheme).append(" ").append(proof);
  return headers;
}

std::string firstLineOf(std::string_view text) {
  std::string line;
  for (const char character : text.substr(0, text.find_first_of("\r\n"))) {
    if (line.size() == kLongestLine) break;
    if (character >= ' ' && character <= '~') line += character;
  }
  return line;
}

}  // namespace corvane::pelto
