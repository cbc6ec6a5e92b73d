#pragma once

#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

// The entries of a bookmarks file and the engine's records, as literals.

namespace corvane {

Dictionary rootEntry(std::vector<Value> children);
Dictionary folderEntry(const char* uid, const char* title, std::vector<Value> children = {});
Dictionary bookmarkEntry(const char* uid, const char* title, const char* url = "http://example.com/");

/// Null leaves the value out.
Dictionary folderRecord(const char* name, const char* parent = nullptr);
Dictionary bookmarkRecord(const char* name, const char* parent = nullptr,
                          const char* url = "http://example.com/");

/// A copy with one more key.
Dictionary with(Dictionary original, const char* key, Value value);
/// A copy without the key.
Dictionary without(Dictionary original, const char* key);
/// A copy of an entry that is hidden from the user interface.
Dictionary hidden(const Dictionary& entry);
/// A copy of a record at this position.
Dictionary atPosition(Dictionary record, int position);

}  // namespace corvane
