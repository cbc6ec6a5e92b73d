#include "tools/corvane-hub/HubConfiguration.h"

#include <arpa/inet.h>
#include <sys/un.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <set>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/RegularFile.h"
#include "tools/corvane-hub/HubFailure.h"

namespace corvane::hubserver {

namespace {

constexpr std::uint64_t kLargestSize = std::uint64_t{1} << 60;
constexpr std::string_view kUnits[] = {"KiB", "MiB", "GiB", "TiB"};

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isAsciiSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isAsciiSpace(text.back())) text.remove_suffix(1);
  return text;
}

template <typename Number>
std::optional<Number> decimal(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return {};
  return number;
}

bool isNumericHost(const std::string& host, int family) {
  unsigned char address[sizeof(in6_addr)];
  return ::inet_pton(family, host.c_str(), address) == 1;
}

std::optional<ListenAddress> parsedListenAddress(std::string_view text) {
  ListenAddress address;
  constexpr std::string_view kUnix = "unix:";
  if (text.starts_with(kUnix)) {
    address.path = text.substr(kUnix.size());
    const bool fits = address.path.size() < sizeof(sockaddr_un::sun_path);
    return fits && address.path.starts_with('/') ? std::optional(address) : std::nullopt;
  }
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return {};
  const std::optional<std::uint16_t> port = decimal<std::uint16_t>(text.substr(colon + 1));
  std::string_view host = text.substr(0, colon);
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  address.host = host;
  if (!port || !isNumericHost(address.host, bracketed ? AF_INET6 : AF_INET)) return {};
  address.port = *port;
  return address;
}

/// Reads the lines one after another and knows where it is.
class Reader {
 public:
  explicit Reader(const std::string& file) : _file(file) {}

  void take(std::string_view line) {
    ++_line;
    line = trimmed(line);
    if (line.empty() || line.front() == '#') return;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) refuse(tr("a line is KEY = VALUE, or a comment after \"#\""));
    const std::string key(trimmed(line.substr(0, equals)));
    const std::string value(trimmed(line.substr(equals + 1)));
    if (value.empty()) refuse(tr("\"%1\" has no value", key));
    if (key != "listen" && !_seen.insert(key).second) refuse(tr("\"%1\" stands twice", key));
    set(key, value);
  }

  /// What holds for all lines together.
  HubConfiguration finished() {
    if (_configuration.certificate.empty() != _configuration.key.empty()) {
      refuseWhole(tr("\"certificate\" and \"key\" go together"));
    }
    for (const ListenAddress& address : _configuration.listen) {
      if (!address.isLocal() && !_configuration.hasCertificate()) {
        refuseWhole(
            tr("\"listen = %1\" would carry tokens unencrypted: give a certificate and a key, or listen on "
               "127.0.0.1, [::1] or a Unix socket, with a proxy in front that does TLS",
               address.text()));
      }
    }
    return _configuration;
  }

 private:
  void set(const std::string& key, const std::string& value) {
    if (key == "data") {
      _configuration.data = absolute(key, value);
    } else if (key == "certificate") {
      _configuration.certificate = absolute(key, value);
    } else if (key == "key") {
      _configuration.key = absolute(key, value);
    } else if (key == "quota") {
      const std::optional<std::uint64_t> size = parsedSize(value);
      if (!size)
        refuse(tr("\"quota\" is a number of bytes such as 1073741824, or one with KiB, MiB, GiB or TiB"));
      _configuration.quota = *size;
    } else if (key == "listen") {
      const std::optional<ListenAddress> address = parsedListenAddress(value);
      if (!address)
        refuse(tr("\"listen\" is such as 127.0.0.1:8420, [::1]:8420 or unix:/run/corvane-hub/socket"));
      _configuration.listen.push_back(*address);
    } else {
      refuse(tr("there is no \"%1\"; there are data, listen, certificate, key and quota", key));
    }
  }

  std::string absolute(const std::string& key, const std::string& value) const {
    if (value.front() != '/' || value.find('\0') != std::string::npos) {
      refuse(tr("\"%1\" is a path that begins with \"/\"", key));
    }
    return value;
  }

  [[noreturn]] void refuse(const std::string& cause) const {
    throw HubFailure(_file + ":" + std::to_string(_line) + ": " + cause);
  }
  [[noreturn]] void refuseWhole(const std::string& cause) const { throw HubFailure(_file + ": " + cause); }

  std::string _file;
  int _line = 0;
  std::set<std::string> _seen;
  HubConfiguration _configuration;
};

}  // namespace

std::string ListenAddress::text() const {
  if (host.empty()) return "unix:" + path;
  const bool isIPv6 = host.find(':') != std::string::npos;
  return (isIPv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool ListenAddress::isLocal() const { return host.empty() || host == "::1" || host.starts_with("127."); }

HubConfiguration parsedConfiguration(std::string_view text, const std::string& file) {
  Reader reader(file);
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    reader.take(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return reader.finished();
}

HubConfiguration configurationIn(const std::string& file) {
  std::string text;
  const std::error_code error = readRegular(file, text, [](const struct stat&) { return std::error_code(); });
  if (error) throw HubFailure(tr("the configuration %1 cannot be read", file), error);
  return parsedConfiguration(text, file);
}

std::optional<std::uint64_t> parsedSize(std::string_view text) {
  std::uint64_t unit = 1;
  for (std::size_t i = 0; i < std::size(kUnits); ++i) {
    if (!text.ends_with(kUnits[i])) continue;
    text = trimmed(text.substr(0, text.size() - kUnits[i].size()));
    unit = std::uint64_t{1} << (10 * (i + 1));
    break;
  }
  const std::optional<std::uint64_t> number = decimal<std::uint64_t>(text);
  if (!number || *number == 0 || *number > kLargestSize / unit) return {};
  return *number * unit;
}

std::string sizeText(std::uint64_t bytes) {
  if (bytes < 1024) return counted(bytes, "%1 byte", "%1 bytes");
  std::size_t unit = 0;
  while (unit + 1 < std::size(kUnits) && bytes >= std::uint64_t{1} << (10 * (unit + 2))) ++unit;
  const double scaled =
      static_cast<double>(bytes) / static_cast<double>(std::uint64_t{1} << (10 * (unit + 1)));
  char digits[32];
  std::snprintf(digits, sizeof digits, scaled == std::floor(scaled) ? "%.0f " : "%.1f ", scaled);
  return digits + std::string(kUnits[unit]);
}

}  // namespace corvane::hubserver
