#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {

/// The keys of a small dictionary in their order, all of them interned. Of equal lists there is one, so that
/// dictionaries with the same keys hold their values alone. Each list leads to those with one key more. Lists
/// are kept until the process ends.
class KeyList {
 public:
  static constexpr std::size_t kMostKeys = 8;
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

  KeyList(const KeyList&) = delete;
  KeyList& operator=(const KeyList&) = delete;

  /// The list of no keys.
  static const KeyList& none();

  std::size_t size() const { return _size; }
  const String* begin() const { return _keys.data(); }
  const String* end() const { return _keys.data() + _size; }

  /// Where the key stands; `kNowhere` for one that is not in the list.
  std::size_t find(const String& key) const;
  std::size_t find(std::string_view key) const;
  /// As `find`, for an interned key: by instance alone.
  std::size_t findInterned(const String& key) const;

  /// The list with a key more at its end, which is neither absent nor in the list. Null beyond `kMostKeys`,
  /// and where there are more lists than files and records need: they may come from somebody who wants to
  /// fill memory.
  const KeyList* with(const String& key) const;
  /// The list without the key at `place`. Null as in `with`.
  const KeyList* without(std::size_t place) const;

 private:
  KeyList() = default;
  KeyList(const KeyList& shorter, const String& key);

  std::size_t _size = 0;
  std::array<String, kMostKeys> _keys;
  mutable std::unordered_map<String, std::unique_ptr<const KeyList>> _longer;  // by the key they have more
  mutable const KeyList* _latest = nullptr;  // of those the one that was asked for last
};

}  // namespace corvane
