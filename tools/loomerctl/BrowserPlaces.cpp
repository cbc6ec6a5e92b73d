#include "tools/loomerctl/BrowserPlaces.h"

#include <unistd.h>

#include <array>
#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "browsers/BrowserNames.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/JsonWriter.h"
#include "tools/loomerctl/Programs.h"
#include "tools/loomerctl/browsers/JsonText.h"

namespace corvane::loomerctl {

namespace {

constexpr std::array<BrowserKind, 2> kBrowsers = {
    BrowserKind{"chromium", "Chromium", "/etc/chromium/native-messaging-hosts",
                "/usr/share/chromium/extensions/corvane-bookmarks", false},
    BrowserKind{"firefox", "Firefox", "/usr/lib/mozilla/native-messaging-hosts",
                "/usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/"
                "bookmarks@corvane.keldra.com.xpi",
                true}};

// Where Firefox has an extension is named after that.
static_assert(kBrowsers[1].extension.find(browsers::kFirefoxExtension) != std::string_view::npos);

std::string inThisInstallation(const std::string& relative) {
  const std::string path = joinedPath(ownDirectory(), relative);
  std::error_code error;
  const std::filesystem::path whole = std::filesystem::canonical(path, error);
  if (error) throw Refused{tr("What belongs to this program is not there: %1", path)};
  return whole.string();
}

std::string manifestIn(const std::string& directory) {
  return joinedPath(directory, std::string(browsers::kHostName) + ".json");
}

// What a manifest names as its program; empty for a file that is none.
std::string programOf(const std::string& text, const std::string& path) {
  try {
    const JsonDocument manifest = parseJson(text, path);
    const JsonValue* const program = memberOf(manifest, "path");
    return program && program->IsString() ? program->GetString() : "";
  } catch (const Refused&) {
    return "";
  }
}

std::optional<FoundManifest> manifestAt(const std::string& path) {
  std::string text;
  if (Platform::current().files.read(path, text)) return std::nullopt;
  const std::string program = programOf(text, path);
  return FoundManifest{path, program, ::access(program.c_str(), X_OK) == 0};
}

}  // namespace

std::vector<BrowserKind> browserKinds(std::string_view name) {
  std::vector<BrowserKind> kinds;
  for (const BrowserKind& each : kBrowsers) {
    if (name.empty() || each.name == name) kinds.push_back(each);
  }
  if (kinds.empty()) throw Refused{tr("\"%1\" is neither chromium nor firefox.", name)};
  return kinds;
}

std::string ownHost() { return inThisInstallation("corvane-browser-host"); }

std::string ownExtension(const BrowserKind& kind) {
  const std::string directory = "../share/corvane/browser/";
  return inThisInstallation(
      directory + (kind.isFirefox ? std::string(browsers::kFirefoxExtension) + ".xpi" : "extension"));
}

std::string userManifestPath(const BrowserKind& kind) {
  ProcessInfo& process = Platform::current().process;
  return manifestIn(kind.isFirefox
                        ? joinedPath(process.homeDirectory(), ".mozilla/native-messaging-hosts")
                        : joinedPath(process.configurationDirectory(), "chromium/NativeMessagingHosts"));
}

std::string manifestText(const BrowserKind& kind, const std::string& program, const Output& like) {
  Output text = Output::toMemory(like, TerminalSize());
  JsonWriter json(text);
  json.beginObject();
  json.member("name", browsers::kHostName);
  json.member("description", "Corvane Bookmarks");
  json.member("path", program);
  json.member("type", "stdio");
  json.key(kind.isFirefox ? "allowed_extensions" : "allowed_origins");
  json.beginArray();
  json.value(kind.isFirefox ? std::string(browsers::kFirefoxExtension)
                            : "chrome-extension://" + std::string(browsers::kChromiumExtension) + '/');
  json.endArray();
  json.endObject();
  json.finish();
  return text.taken();
}

std::optional<FoundManifest> foundManifest(const BrowserKind& kind) {
  if (const auto own = manifestAt(userManifestPath(kind))) return own;
  return manifestAt(manifestIn(std::string(kind.hosts)));
}

bool isExtensionForAll(const BrowserKind& kind) {
  std::error_code error;
  return std::filesystem::exists(kind.extension, error);
}

}  // namespace corvane::loomerctl
