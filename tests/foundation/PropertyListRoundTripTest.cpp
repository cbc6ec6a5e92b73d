#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bit>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {
namespace {

// Texts of code points; `forXml` leaves out what XML cannot carry.
rc::Gen<std::string> genText(bool forXml) {
  const auto genCodePoint =
      rc::gen::map(rc::gen::weightedOneOf<std::uint32_t>(
                       {{6, rc::gen::inRange<std::uint32_t>(0x20, 0x7F)},
                        {1, rc::gen::inRange<std::uint32_t>(forXml ? 0x9 : 0x0, 0xB)},
                        {2, rc::gen::inRange<std::uint32_t>(0x80, 0xD800)},
                        {1, rc::gen::inRange<std::uint32_t>(0xD800, forXml ? 0xD801 : 0xDC00)},
                        {1, rc::gen::inRange<std::uint32_t>(0x10000, 0x110000)}}),
                   [forXml](std::uint32_t codePoint) -> char32_t {
                     return forXml && isSurrogate(codePoint) ? 'x' : codePoint;
                   });
  return rc::gen::map(rc::gen::container<std::vector<char32_t>>(genCodePoint), [](const auto& codePoints) {
    std::string text;
    for (const char32_t codePoint : codePoints) appendUtf8(text, codePoint);
    return text;
  });
}

rc::Gen<Value> genScalar(bool forXml) {
  const auto genDate = forXml ? rc::gen::map(rc::gen::inRange<std::int64_t>(-63113904000, 252423993600),
                                             [](std::int64_t whole) { return Value(Date{double(whole)}); })
                              : rc::gen::map(rc::gen::arbitrary<double>(),
                                             [](double seconds) { return Value(Date{seconds}); });
  return rc::gen::oneOf(
      rc::gen::map(rc::gen::arbitrary<bool>(), [](bool value) { return Value(value); }),
      rc::gen::map(rc::gen::arbitrary<std::int64_t>(), [](std::int64_t value) { return Value(value); }),
      rc::gen::map(rc::gen::arbitrary<std::uint64_t>(), [](std::uint64_t value) { return Value(value); }),
      rc::gen::map(rc::gen::arbitrary<double>(), [](double value) { return Value(value); }), genDate,
      rc::gen::map(genText(forXml), [](const std::string& text) { return Value(text); }),
      rc::gen::map(rc::gen::arbitrary<std::string>(),
                   [](const std::string& bytes) { return Value(Data(bytes)); }));
}

rc::Gen<Value> genValue(bool forXml, int depth) {
  if (depth == 0) return genScalar(forXml);
  const auto genInside = rc::gen::lazy([=] { return genValue(forXml, depth - 1); });
  const auto genArray =
      rc::gen::map(rc::gen::container<std::vector<Value>>(genInside),
                   [](std::vector<Value> values) { return Value(Array(std::move(values))); });
  const auto genDictionary = rc::gen::map(rc::gen::container<std::vector<std::pair<std::string, Value>>>(
                                              rc::gen::pair(genText(forXml), genInside)),
                                          [](const auto& entries) {
                                            Dictionary dictionary;
                                            for (const auto& [key, value] : entries)
                                              dictionary.set(key, value);
                                            return Value(dictionary);
                                          });
  return rc::gen::weightedOneOf<Value>({{2, genScalar(forXml)}, {1, genArray}, {1, genDictionary}});
}

RC_GTEST_PROP(PropertyListRoundTrip, BinaryKeepsEveryValue, ()) {
  const Value value = *rc::gen::noShrink(genValue(false, 2));
  const std::string written = writeBinaryPropertyList(value);
  const Value read = readPropertyList(written);
  RC_ASSERT(read == value);
  RC_ASSERT(description(read) == description(value));  // the order of keys too
  RC_ASSERT(writeBinaryPropertyList(read) == written);
}

RC_GTEST_PROP(PropertyListRoundTrip, XmlKeepsEveryValue, ()) {
  const Value value = *rc::gen::noShrink(genValue(true, 2));
  const Value read = readPropertyList(writeXmlPropertyList(value));
  RC_ASSERT(read == value);
  RC_ASSERT(description(read) == description(value));
}

}  // namespace
}  // namespace corvane
