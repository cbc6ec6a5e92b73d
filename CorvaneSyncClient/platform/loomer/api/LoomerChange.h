#pragma once

#include <optional>

#include "CorvaneSyncClient/platform/foundation/values/Format.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane {

/// One change that the engine hands to a client.
class LoomerChange final : public Describable {
 public:
  /// `initWithChangeType:recordIdentifier:changes:`; `type` is a LoomerChangeType, though any number can be
  /// carried; `record` is the whole record after the change, absent for a deletion.
  LoomerChange(int type, String recordIdentifier, std::optional<Dictionary> record)
      : _type(type), _recordIdentifier(std::move(recordIdentifier)), _record(std::move(record)) {}

  int type() const { return _type; }
  const String& recordIdentifier() const { return _recordIdentifier; }
  const std::optional<Dictionary>& record() const { return _record; }
  /// "LoomerChange type 1 identifier X record {…}".
  std::string description() const override;

 private:
  int _type;
  String _recordIdentifier;
  std::optional<Dictionary> _record;
};

}  // namespace corvane
