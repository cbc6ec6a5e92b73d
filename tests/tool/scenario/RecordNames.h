#pragma once

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane::scenario {

/// An entity as the engine names it: "Folder" and "Bookmark" become the schema's names, other words stay.
String entityFromWord(const String& word);

/// Whether a key of a record is written as a scenario has it: a constant's name, or a key that
/// does not look like one.
bool isRecordKey(const String& key);
/// Whether a record's value fits its key: an entity name must be one of the two words.
bool isRecordValue(const String& key, const Value& value);

/// A sync record from a scenario's: constants for their names, URL values for dictionaries with the one key
/// "URL". Of two names for one string the later one wins.
Dictionary recordFromScenario(const Dictionary& record);
/// The reverse. Where two constants share a string, the name is the one for the record's entity, or the
/// folder's if it has no entity.
Dictionary recordForResult(const Dictionary& record);

}  // namespace corvane::scenario
