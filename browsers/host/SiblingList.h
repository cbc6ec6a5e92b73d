#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace corvane::browsers {

/// The ids of a folder's children in their order, each of them once. To put one at an index, to take one out
/// and to ask for its index cost O(log n).
class SiblingList {
 public:
  SiblingList();
  ~SiblingList();
  SiblingList(const SiblingList& other);
  SiblingList& operator=(const SiblingList& other);
  SiblingList(SiblingList&&) noexcept;
  SiblingList& operator=(SiblingList&&) noexcept;

  /// Valid until the list changes.
  const std::vector<std::string>& ids() const;
  void append(const std::string& id);
  /// At the end where the index is beyond it.
  void insert(std::size_t index, const std::string& id);
  /// Does nothing for one that is not listed.
  void remove(const std::string& id);
  /// Of one that is listed.
  std::size_t indexOf(const std::string& id) const;

 private:
  class Index;

  Index& index() const;

  mutable std::vector<std::string> _ids;  // behind the index while `_isStale`
  mutable std::unique_ptr<Index> _index;  // only of a list that is more than appended to
  mutable bool _isStale = false;
};

}  // namespace corvane::browsers
