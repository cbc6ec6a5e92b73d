#include "CorvaneSyncClient/platform/pelto/place/S3Listing.h"

#include <charconv>
#include <cstdint>
#include <optional>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/plist/XmlScalars.h"
#include "CorvaneSyncClient/platform/pelto/place/XmlElements.h"

namespace corvane::pelto {

namespace {

std::uint64_t numberFrom(const std::string& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size())
    throw XmlException(Message("a size that is no number"));
  return number;
}

// "2026-11-22T09:40:00.000Z", with or without a fraction, which does not matter here.
Date dateFrom(const std::string& text) {
  const std::size_t point = text.find('.');
  const std::string whole = point == std::string::npos ? text : text.substr(0, point) + 'Z';
  const std::optional<Date> date = dateFromXmlText(whole);
  if (!date) throw XmlException(Message("a date of another form"));
  return *date;
}

// Servers differ in their namespaces.
class S3ListingBuilder {
 public:
  void begin(const XmlPath& path) {
    if (path.size() == 1 && localName(path[0]) != "ListBucketResult")
      throw XmlException(Message("it is no listing"));
    if (path.size() == 2 && localName(path[1]) == "Contents") _listing.objects.emplace_back();
  }

  void end(const XmlPath& path, const std::string& text) {
    const std::string_view name = localName(path.back());
    if (path.size() == 2) {
      if (name == "IsTruncated") _isTruncated = text == "true";
      if (name == "NextContinuationToken") _listing.next = text;
    } else if (path.size() == 3 && localName(path[1]) == "Contents") {
      PlaceObject& object = _listing.objects.back();
      if (name == "Key") object.name = text;
      if (name == "Size") object.bytes = numberFrom(text);
      if (name == "LastModified") object.date = dateFrom(text);
    }
  }

  S3Listing finish() {
    if (!_isTruncated) _listing.next.clear();
    if (_isTruncated && _listing.next.empty()) throw XmlException(Message("it is cut and doesn't say where"));
    return std::move(_listing);
  }

 private:
  S3Listing _listing;
  bool _isTruncated = false;
};

}  // namespace

S3Listing readS3Listing(std::string_view bytes) {
  S3ListingBuilder builder;
  readXml(bytes, {[&](const XmlPath& path) { builder.begin(path); },
                  [&](const XmlPath& path, const std::string& text) { builder.end(path, text); }});
  return builder.finish();
}

std::string readS3ErrorCode(std::string_view bytes) {
  std::string code;
  const auto take = [&](const XmlPath& path, const std::string& text) {
    if (path.size() == 2 && localName(path[0]) == "Error" && localName(path[1]) == "Code") code = text;
  };
  try {
    readXml(bytes, {[](const XmlPath&) {}, take});
  } catch (const XmlException&) {
    return {};  // an error's page in another form, or cut
  }
  return code;
}

}  // namespace corvane::pelto
