#pragma once

#include <string>
#include <string_view>

namespace corvane::pelto {

/// Raises DotPeltoException, with the reason, for an address that is not a `postgresql://` URL, or that would
/// send secrets to another computer without TLS that verifies the server.
void checkAccountUrl(std::string_view url);
/// Whether the URL contains a password. Raises DotPeltoException like `checkAccountUrl`.
bool holdsPassword(std::string_view url);
/// The URL in words, without the password and other secrets.
std::string withoutSecrets(std::string_view url);

}  // namespace corvane::pelto
