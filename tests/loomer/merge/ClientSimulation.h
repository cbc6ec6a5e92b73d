#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

namespace corvane::loomer::test {

/// A model of a client of the engine: its file as a tree of entries, and what it does with the changes
/// that are delivered to it. Every session begins by reading the file, which numbers the children of each
/// folder from 0 on, entries that the engine never sees included; changes place children by number and never
/// renumber.
class ClientSimulation {
 public:
  struct Entry {
    std::string parent;
    Entity entity = Entity::bookmark;
    String title;
    String url;
    bool tabGroup = false;
    bool hidden = false;  ///< kept from the engine, with everything below it
    bool special = false;
    std::int32_t position = 0;
    std::vector<std::string> children;
  };

  static constexpr const char* kRootUid = "Root";

  /// `name` makes the uids of this client's entries differ from those of others.
  explicit ClientSimulation(std::string name);

  // What a person does. Entries are named by uid; `index` counts all entries of the folder and is cut to its
  // size.
  std::string add(const std::string& parent, std::size_t index, Entity entity, const std::string& title,
                  const std::string& url, bool hidden = false);
  void rename(const std::string& uid, const std::string& title) { _entries.at(uid).title = String(title); }
  void readdress(const std::string& uid, const std::string& url) { _entries.at(uid).url = String(url); }
  void toggle(const std::string& uid) { _entries.at(uid).tabGroup = !_entries.at(uid).tabGroup; }
  /// Moving a folder into itself does nothing.
  void move(const std::string& uid, const std::string& parent, std::size_t index);
  void erase(const std::string& uid);

  /// Reads the file and answers what it pushes.
  std::vector<ClientRecord> read();
  /// Takes in what is delivered and fills the local ids of additions into the base.
  void apply(const MergeResult& result, std::vector<BaseRecord>& base);

  const std::map<std::string, Entry>& entries() const { return _entries; }
  /// The uids of what a person sees of one kind, in a fixed order; the root among the folders.
  std::vector<std::string> uids(Entity entity) const;
  /// The tree without what is hidden, in the notation of tests, to compare clients by: entries are called by
  /// their titles.
  std::string print() const;

 private:
  struct HeldAside {
    std::string uid;
    ClientChange change;
  };

  std::string newUid();
  void readFolder(const std::string& uid);
  void forget(const std::string& uid);
  void deleteEntry(const std::string& uid);
  void update(const std::string& uid, const ClientChange& change);
  void placeHeldAside();
  void applyHeldAside(const HeldAside& held);
  std::string uidOf(RecordId record) const;
  void addChild(const std::string& parent, const std::string& child);
  void removeChild(const std::string& parent, const std::string& child);

  std::string _name;
  int _made = 0;
  std::map<std::string, Entry> _entries;
  // One session's.
  bool _placedHeldAside = false;
  std::vector<HeldAside> _addedFolders;
  std::vector<HeldAside> _modifiedFolders;
  std::map<RecordId, std::string> _uids;
};

}  // namespace corvane::loomer::test
