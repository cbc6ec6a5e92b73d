#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::pelto {

/// One of the servers in an address.
struct HubHost {
  std::string name;     ///< the name in the server's certificate, or a socket's path; empty: default socket
  std::string address;  ///< the numeric address to connect to; empty: to be looked up by name
  std::string port;     ///< empty: the default port

  /// Whether the connection stays on this computer.
  bool isLocal() const;
  /// Whether the numeric addresses have to be looked up by name.
  bool needsLookup() const;
};

/// A parsed `postgresql://` URL, with what the tool adds: for a server that is not local, TLS that verifies
/// the server's name. Holds secrets.
struct HubAddress {
  std::vector<HubHost> hosts;  ///< never empty, in the order to try them
  /// The other connection parameters by libpq's names; "sslmode" is always among them.
  std::vector<std::pair<std::string, std::string>> parameters;

  /// The value of a connection parameter; empty when it is not set.
  std::string parameter(std::string_view name) const;
  bool holdsPassword() const;
  /// Servers, database and user in words, without secrets.
  std::string description() const;
};

/// Raises DotPeltoException, with the reason, for an address that is not a `postgresql://` URL, or that would
/// send secrets to another computer without TLS that verifies the server.
HubAddress parseHubAddress(std::string_view url);

}  // namespace corvane::pelto
