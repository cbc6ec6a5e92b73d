// `browser install`, `browser remove` and `browser status`.

#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/BrowserPlaces.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {

// Makes this installation's program the one that the user's browser starts, unless it is for all users.
void installManifest(Invocation& run, const BrowserKind& kind) {
  const std::string program = ownHost();
  std::error_code error;
  const auto found = foundManifest(kind);
  if (found && std::filesystem::equivalent(found->program, program, error)) return;
  const std::filesystem::path path = userManifestPath(kind);
  std::filesystem::create_directories(path.parent_path(), error);
  if (!error) {
    error = Platform::current().files.writeAtomically(path.string(), manifestText(kind, program, run.out));
  }
  if (error) throw Refused{tr("Cannot write %1: %2.", path.string(), error.message())};
}

// Answers whether it was there.
bool removeManifest(const BrowserKind& kind) {
  const std::filesystem::path path = userManifestPath(kind);
  std::error_code error;
  const bool wasThere = std::filesystem::remove(path, error);
  if (error) throw Refused{tr("Cannot remove %1: %2.", path.string(), error.message())};
  // Where nobody else has put something there, the directory was made for it.
  std::filesystem::remove(path.parent_path(), error);
  return wasThere;
}

std::string whatToDoAboutProgram(const BrowserKind& kind) {
  return tr("Run `loomerctl browser install %1`.", kind.name);
}

// Answers whether the browser finds a program that is there.
bool showProgram(Invocation& run, const BrowserKind& kind) {
  const auto found = foundManifest(kind);
  if (found && found->runs) {
    writeField(run.out, tr("Program"), printable(found->program));
    return true;
  }
  writeField(run.out, tr("Program"),
             (found ? tr("%1 names a program that is not there.", printable(found->path))
                    : tr("The browser does not know it.")) +
                 ' ' + whatToDoAboutProgram(kind));
  return false;
}

std::string howToLoad(const BrowserKind& kind) {
  const std::string extension = printable(ownExtension(kind));
  if (kind.isFirefox) {
    return tr(
        "Only Debian's Firefox ESR and development builds take it, since it is not signed: set "
        "xpinstall.signatures.required to false in about:config, then choose Install Add-on From File in "
        "about:addons, and %1.",
        extension);
  }
  return tr(
      "Only Chromium takes it, and no Google Chrome: switch the developer mode on in chrome://extensions, "
      "then choose Load unpacked, and %1.",
      extension);
}

void showExtension(Invocation& run, const BrowserKind& kind) {
  if (isExtensionForAll(kind)) {
    return writeField(run.out, tr("Extension"), tr("installed for all users: %1", kind.extension));
  }
  writeField(run.out, tr("Extension"), tr("not installed for all users; you may have loaded it yourself."));
  run.out.write(wrapped(howToLoad(kind), run.out.columns()));
}

// Answers whether the program is in place.
bool showBrowser(Invocation& run, const BrowserKind& kind) {
  run.out.write(std::string(kind.title) + '\n', Style::heading);
  const bool isInPlace = showProgram(run, kind);
  showExtension(run, kind);
  return isInPlace;
}

}  // namespace

Status installBrowser(Invocation& run) {
  for (const BrowserKind& each : browserKinds(run.options.argument)) {
    installManifest(run, each);
    showBrowser(run, each);
  }
  return statusFine;
}

Status removeBrowser(Invocation& run) {
  bool wasThere = false;
  for (const BrowserKind& each : browserKinds(run.options.argument)) {
    if (!removeManifest(each)) continue;
    wasThere = true;
    run.out.write(tr("%1 no longer starts the program for you.", each.title) + '\n');
    if (foundManifest(each)) {
      run.out.write(wrapped(tr("It still does for all users, until the Debian package is removed."),
                            run.out.columns()));
    }
  }
  if (!wasThere) throw Refused{tr("There is nothing to be removed that was installed for you alone.")};
  run.out.write(
      wrapped(tr("The bookmarks stay as they are, in the browser and here. What you have loaded yourself "
                 "the browser lists among its extensions, and removes."),
              run.out.columns()));
  return statusFine;
}

Status showBrowsers(Invocation& run) {
  bool allInPlace = true;
  for (const BrowserKind& each : browserKinds(run.options.argument)) {
    if (!showBrowser(run, each)) allInPlace = false;
  }
  return allInPlace ? statusFine : statusRefused;
}

}  // namespace corvane::loomerctl
