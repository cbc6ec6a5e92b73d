// The bytes of JSON output, which other programs read.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "tools/loomerctl/JsonWriter.h"

namespace corvane::loomerctl {
namespace {

using namespace std::string_view_literals;

// What `write` puts out.
std::string written(const std::function<void(JsonWriter&)>& write) {
  const int file = ::memfd_create("json", 0);
  Output out(file, false);
  JsonWriter json(out);
  write(json);
  json.finish();
  out.flush();
  std::string text(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)), '\0');
  const ssize_t read = ::pread(file, text.data(), text.size(), 0);
  ::close(file);
  return read == static_cast<ssize_t>(text.size()) ? text : "cannot be read back";
}

std::string valueWritten(std::string_view text) {
  return written([&](JsonWriter& json) { json.value(text); });
}

TEST(JsonBytes, EveryValueStandsOnALineOfItsOwn) {
  const std::string text = written([](JsonWriter& json) {
    json.beginObject();
    json.member("number", INT64_MIN);
    json.member("yes", true);
    json.member("absent", String());
    json.member("date", std::optional<Date>(Date{0}));
    json.member("farDate", Date{1e300});
    json.key("list");
    json.beginArray();
    json.value("a");
    json.beginArray();
    json.endArray();
    json.beginObject();
    json.endObject();
    json.value(std::optional<bool>());
    json.endArray();
    json.endObject();
  });
  EXPECT_EQ(text,
            "{\n"
            "  \"number\": -9223372036854775808,\n"
            "  \"yes\": true,\n"
            "  \"absent\": null,\n"
            "  \"date\": \"2001-01-01T00:00:00Z\",\n"
            "  \"farDate\": null,\n"
            "  \"list\": [\n"
            "    \"a\",\n"
            "    [],\n"
            "    {},\n"
            "    null\n"
            "  ]\n"
            "}\n");
}

TEST(JsonBytes, ControlCharactersQuotesAndBackslashesAreEscaped) {
  EXPECT_EQ(valueWritten("a\"b\\c/"), "\"a\\\"b\\\\c/\"\n");
  EXPECT_EQ(valueWritten("\0\b\t\n\x1F\x7F"sv), "\"\\u0000\\u0008\\u0009\\u000a\\u001f\\u007f\"\n");
}

TEST(JsonBytes, TextStaysAsItIs) { EXPECT_EQ(valueWritten("é日😀\u2028"), "\"é日😀\u2028\"\n"); }

TEST(JsonBytes, UnpairedSurrogatesAreEscapedAndOtherBytesReplaced) {
  EXPECT_EQ(valueWritten("a\xED\xA0\xBDz\xED\xB8\x80"), "\"a\\ud83dz\\ude00\"\n");
  EXPECT_EQ(valueWritten("a\xFFz\xC3"), "\"a\uFFFDz\uFFFD\"\n");
}

TEST(JsonBytes, DeepTextsAreWritten) {
  const std::string text = written([](JsonWriter& json) {
    for (int i = 0; i < 1000; ++i) json.beginArray();
    for (int i = 0; i < 1000; ++i) json.endArray();
  });
  EXPECT_EQ(text.find("[]"), text.rfind("[]"));
  EXPECT_EQ(std::count(text.begin(), text.end(), ']'), 1000);
}

}  // namespace
}  // namespace corvane::loomerctl
