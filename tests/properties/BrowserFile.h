#pragma once

#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "tests/kit/ClientTree.h"

namespace corvane {

/// A bookmarks file as a browser holds it: entries are known by their uids and keep every key they came with.
class BrowserFile : public kit::ClientTree {
 public:
  /// `contents` is the file's dictionary. Raises std::logic_error when one uid stands in it twice, or none.
  explicit BrowserFile(const Dictionary& contents);

  /// Adds an entry, with a note of the browser's own in it, a key that nothing else knows.
  void addWithNote(const std::string& uid, Node node, std::size_t index);

  /// The file's dictionary as edited.
  Dictionary contents() const { return entry(kRoot); }
  /// "UID: note" of every entry that has a note, sorted.
  std::vector<std::string> notes() const;

  static constexpr const char* kNoteKey = "BrowserNote";

 private:
  void read(const std::string& id, const Dictionary& keys);
  Dictionary entry(const std::string& id) const;

  std::map<std::string, Dictionary> _keys;  // as they came, without children
};

}  // namespace corvane
