#pragma once

#include <string>
#include <string_view>

namespace corvane::pelto {

/// Whether the address leads to a place, and not to a PostgreSQL server as `postgresql://` does.
bool isPlaceAddress(std::string_view address);

/// Raises a PlatformException, with the reason, for an address that leads neither to a place nor to a server,
/// or that would send secrets to another computer without TLS that verifies the server.
void checkAccountAddress(std::string_view address);
/// Whether the address contains a password. Raises like `checkAccountAddress`.
bool holdsPassword(std::string_view address);
/// The address in words, without the password and other secrets.
std::string withoutSecrets(std::string_view address);

}  // namespace corvane::pelto
