#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "tests/loomer/merge/ClientSimulation.h"

namespace corvane {

/// A bookmarks file as a browser holds it: entries keep every key they came with.
class BrowserFile {
 public:
  struct Entry {
    Dictionary keys;  ///< without its children
    bool isFolder = false;
    bool isHidden = false;  ///< kept from syncing; so is what is below it
    std::size_t parent = 0;
    std::vector<std::size_t> children;
  };

  /// `contents` is the file's dictionary.
  explicit BrowserFile(const Dictionary& contents);

  /// Adds an entry with a note of the browser's own in it, a key that nothing else knows.
  std::size_t add(std::size_t folder, std::size_t index, loomer::Entity entity, const std::string& title,
                  const std::string& uid, bool hidden = false);
  void rename(std::size_t entry, const std::string& title);
  void readdress(std::size_t entry, const std::string& url);
  void toggle(std::size_t entry);
  /// Nothing if the folder is in the entry.
  void move(std::size_t entry, std::size_t folder, std::size_t index);
  void erase(std::size_t entry);

  Dictionary contents() const;
  const Entry& at(std::size_t entry) const { return _entries[entry]; }
  std::string title(std::size_t entry) const;
  /// What syncs, or only its folders, parents first; the root is entry 0 and the first of the folders.
  std::vector<std::size_t> visible(bool foldersOnly) const;
  /// What all clients must agree on, in the notation of tests: the tree without what is hidden and without
  /// uids.
  std::string print() const;
  /// "UID: note" of every entry that has a note, sorted.
  std::vector<std::string> notes() const;

  static constexpr const char* kNoteKey = "BrowserNote";

 private:
  void read(const Dictionary& keys, std::size_t parent);
  void insert(std::size_t entry, std::size_t folder, std::size_t index);
  void remove(std::size_t entry);
  std::vector<std::size_t> reachable() const;

  std::vector<Entry> _entries;
};

}  // namespace corvane
