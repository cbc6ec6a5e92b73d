#include "tools/loomerctl/browsers/BookmarksFile.h"

#include <utility>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/ForeignFile.h"
#include "tools/loomerctl/HtmlCharacterSet.h"
#include "tools/loomerctl/Input.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/ChromiumBookmarks.h"
#include "tools/loomerctl/browsers/DatabaseSnapshot.h"
#include "tools/loomerctl/browsers/FirefoxBackup.h"
#include "tools/loomerctl/browsers/JsonText.h"
#include "tools/loomerctl/browsers/MozLz4.h"
#include "tools/loomerctl/browsers/PlacesDatabase.h"

namespace corvane::loomerctl {

namespace {

// The sentence, and what is wanted instead.
[[noreturn]] void refuseForm(const std::string& sentence) {
  throw Refused{sentence + ' ' +
                tr("`import` takes a bookmarks file in HTML, as browsers export it, Bookmarks of Chromium's "
                   "profile, or a "
                   "backup or places.sqlite of Firefox.")};
}

BrowserBookmarks readJson(std::string text, const std::string& name) {
  const JsonDocument document = parseJson(std::move(text), name);
  if (isChromiumBookmarks(document)) return readChromiumBookmarks(document, name);
  if (isFirefoxBackup(document)) return readFirefoxBackup(document, name);
  refuseForm(tr("%1 is a JSON file of another kind.", name));
}

BrowserBookmarks readForm(std::string bytes, const std::string& path, const std::string& name) {
  switch (formOf(bytes)) {
    case FileForm::json:
      return readJson(std::move(bytes), name);
    case FileForm::compressed:
      return readJson(mozLz4Contents(bytes, name), name);
    case FileForm::database:
      // What comes through standard input has no files beside it.
      if (path != kStandardStream) bytes = databaseSnapshot(path);
      return treeOfPlaces(readPlaces(withWriteAheadLog(std::move(bytes), "", name), name));
    case FileForm::text:
      break;
  }
  if (const auto kind = foreignKind(bytes, name)) refuseForm(*kind);
  return parseBookmarksHtml(htmlAsUtf8(bytes, name));
}

}  // namespace

BrowserBookmarks readBookmarksFile(const std::string& path) {
  const std::string name = inputName(path);
  const auto present = Platform::current().files.attributesIfKnown(path);
  if (path != kStandardStream && present && present->kind == FileKind::directory) {
    refuseForm(tr("%1 is a directory.", name));
  }
  BrowserBookmarks bookmarks = readForm(readInput(path), path, name);
  if (bookmarks.nodes.empty()) refuseForm(tr("There are no bookmarks in %1.", name));
  return bookmarks;
}

}  // namespace corvane::loomerctl
