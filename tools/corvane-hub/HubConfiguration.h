#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::hubserver {

/// Where the server listens: an address with a port, or the path of a Unix socket.
struct ListenAddress {
  std::string host;  ///< numeric, IPv4 or IPv6; empty for a Unix socket
  std::uint16_t port = 0;
  std::string path;

  std::string text() const;
  /// Whether nobody but this machine reaches it.
  bool isLocal() const;
};

/// What the configuration file says.
struct HubConfiguration {
  std::string data = "/var/lib/corvane-hub";
  std::vector<ListenAddress> listen;
  std::string certificate;  ///< a PEM file with the chain; empty where a proxy does TLS
  std::string key;
  std::uint64_t quota = std::uint64_t{1} << 30;  ///< bytes of a new account

  bool hasCertificate() const { return !certificate.empty(); }
};

/// The configuration that `text` holds, lines of "KEY = VALUE". Raises HubFailure with `file`, line and
/// cause.
HubConfiguration parsedConfiguration(std::string_view text, const std::string& file);
/// As above, of a file.
HubConfiguration configurationIn(const std::string& file);

/// A number of bytes, such as "1073741824" or "1 GiB"; absent for other text, 0, and more than 2^60.
std::optional<std::uint64_t> parsedSize(std::string_view text);
/// Such as "1.5 GiB".
std::string sizeText(std::uint64_t bytes);

}  // namespace corvane::hubserver
