#pragma once

#include "CorvaneSyncClient/model/CorvaneBookmark.h"

namespace corvane {

/// A bookmark proper: a leaf with a URL, which is kept as text and may be absent.
class CorvaneBookmarkRecord : public CorvaneBookmark {
 public:
  using CorvaneBookmark::CorvaneBookmark;

  /// As the folder's operations of the same names; a bookmark's record needs no name, so that the second
  /// answers null for an absent uid alone.
  static CorvaneBookmarkRecord* bookmarkWithCorvaneDictionary(const Dictionary& dictionary,
                                                              const String& parentId, std::int32_t position,
                                                              BookmarkMap& map);
  static CorvaneBookmarkRecord* bookmarkWithUid(const String& uid, const Dictionary& record,
                                                BookmarkMap& map);

  /// Absent where none was given.
  const String& url() const { return _url; }
  /// Takes a string or a URL value. Anything else, null included, keeps the URL held before and is logged.
  void setUrl(const Value* url);

  using CorvaneBookmark::asRecord;
  CorvaneBookmarkRecord* asRecord() override { return this; }
  std::unique_ptr<CorvaneBookmark> copyWithZone() const override;
  bool isEqual(const CorvaneBookmark& other) const override;
  Dictionary corvaneDictionaryRepresentation(const BookmarkMap& map) const override;
  std::optional<Dictionary> vessynDictionaryRepresentation(const BookmarkMap& map) const override;
  bool appendRecordText(std::string& text) const override;
  void updateWithVessynDictionary(const Dictionary& record, BookmarkMap& map) override;
  void applyChangesFromVessynDictionary(const Dictionary& record,
                                        const CorvaneBookmark* exceptingChangesFromOrigBookmark,
                                        BookmarkMap& map) override;

 private:
  friend class CorvaneFileForm;

  CorvaneBookmarkRecord(const CorvaneBookmarkRecord&) = default;
  const char* className() const override { return "CorvaneBookmarkRecord"; }
  void mergeOwnAttribute(const Dictionary& record, const CorvaneBookmark* original) override;
  /// The URL value for the record, repaired where it must be; nothing when the text is no URL.
  std::optional<Url> urlForRecord() const;

  String _url;
};

}  // namespace corvane
