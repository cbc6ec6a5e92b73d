#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loomerctl/browsers/BrowserBookmarks.h"

// `places.sqlite` in a profile of Firefox: bookmarks and history.

namespace corvane::loomerctl {

/// A bookmark, folder or separator, or a tag with what it is given to.
struct PlacesRow {
  std::int64_t id = 0;
  std::int64_t parent = 0;
  std::int64_t position = 0;  ///< among those with the same parent
  std::int64_t type = 0;      ///< 1 for a bookmark, 2 for a folder, 3 for a separator
  std::int64_t place = 0;     ///< of the address, by which tags and keywords go; 0 for none
  bool dated = false;
  std::string guid;
  std::string title;
  std::string url;
};

/// What is noted with a row, or with an address.
struct PlacesNote {
  std::int64_t of = 0;  ///< a row, or a place
  std::string name;
  std::string text;
};

/// What a database says of its bookmarks.
struct PlacesContents {
  std::vector<PlacesRow> rows;          ///< in any order
  std::vector<PlacesNote> keywords;     ///< of places; `name` is the keyword, `text` what is posted with it
  std::vector<PlacesNote> annotations;  ///< of rows
};

/// Reads the database, as bytes that need no write-ahead log. Raises Refused, with `name` and what SQLite
/// says, for bytes that are no such database or a damaged one.
PlacesContents readPlaces(std::string_view database, const std::string& name);

/// The tree that the rows make. Folders become what FirefoxRoots.h says. Rows that no folder leads to,
/// because theirs is missing, is no folder, or lies in itself in the end, are strays. Pure; O(n log n),
/// without recursion.
BrowserBookmarks treeOfPlaces(PlacesContents contents);

}  // namespace corvane::loomerctl
