#pragma once

#include <string_view>

// What the extension, the program that it speaks to and whoever installs them call one another. The
// extension's manifest says the same; tests/extension/manifest_test.py compares the two.

namespace corvane::browsers {

/// The number of the messages' form; the two sides speak with one another when theirs are equal.
inline constexpr int kProtocol = 1;

/// The name under which browsers know `corvane-browser-host`: that of its manifest, with ".json".
inline constexpr std::string_view kHostName = "com.keldra.corvane.bookmarks";

/// The extension in Chromium: the hash of the key in its manifest.
inline constexpr std::string_view kChromiumExtension = "jkhpgakcmhjkmpknlofaaacbbofenkdk";
/// What a profile's token stands behind in the name of its client.
inline constexpr std::string_view kClientPrefix = "com.keldra.browser.";
/// The value of a client in the store that is there while the user has paused it.
inline constexpr const char* kPausedKey = "paused";

/// Whether a client of that name stands for a browser's profile.
constexpr bool isBrowserClient(std::string_view identifier) { return identifier.starts_with(kClientPrefix); }

/// The extension in Firefox, as its manifest names it.
inline constexpr std::string_view kFirefoxExtension = "bookmarks@corvane.keldra.com";

}  // namespace corvane::browsers
