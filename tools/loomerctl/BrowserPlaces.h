#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loomerctl/Output.h"

// Where Debian's browsers look for the extension and for the program that it speaks to, for all users and for
// one.

namespace corvane::loomerctl {

/// A browser that the extension is for.
struct BrowserKind {
  std::string_view name;       ///< as the user says it, "chromium"
  std::string_view title;      ///< "Chromium"
  std::string_view hosts;      ///< the directory of all users' host manifests
  std::string_view extension;  ///< where the Debian package puts the extension
  bool isFirefox;
};

/// The one of that name, all for an empty one. Raises Refused for a name that none has.
std::vector<BrowserKind> browserKinds(std::string_view name);

/// `corvane-browser-host` of this installation. Raises Refused where it is not there.
std::string ownHost();
/// The extension of this installation: a folder for Chromium, a file for Firefox. Raises Refused where it is
/// not there.
std::string ownExtension(const BrowserKind& kind);

/// The host manifest of this user, whether it is there or not.
std::string userManifestPath(const BrowserKind& kind);
/// What a host manifest that names that program says, written as `like` writes.
std::string manifestText(const BrowserKind& kind, const std::string& program, const Output& like);

/// A host manifest that the browser finds.
struct FoundManifest {
  std::string path;
  std::string program;  ///< what it names; empty where it cannot be read
  bool runs;            ///< whether the program is there
};

/// The one that counts: the user's own, else the one for all users.
std::optional<FoundManifest> foundManifest(const BrowserKind& kind);

/// Whether the extension is installed for all users.
bool isExtensionForAll(const BrowserKind& kind);

}  // namespace corvane::loomerctl
