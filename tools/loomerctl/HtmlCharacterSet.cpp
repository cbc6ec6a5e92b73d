#include "tools/loomerctl/HtmlCharacterSet.h"

#include <optional>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/text/CharacterSet.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/HtmlText.h"
#include "tools/loomerctl/HtmlTokenizer.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

constexpr const char* kUtf8 = "UTF-8";

// A character set by the name of its converter in iconv(3), and the labels that browsers take for it (WHATWG
// Encoding Standard, section 4.2), each with a blank around it.
struct CharacterSet {
  const char* converter;
  std::string_view labels;
};

// A label of UTF-16 in a <META> that could be read byte by byte is wrong, and is taken for UTF-8 (HTML
// Standard, section 13.2.3.2).
constexpr CharacterSet kCharacterSets[] = {
    {kUtf8,
     " unicode-1-1-utf-8 unicode11utf8 unicode20utf8 utf-8 utf8 x-unicode20utf8 csunicode iso-10646-ucs-2 "
     "ucs-2 "
     "unicode unicodefeff utf-16 utf-16le unicodefffe utf-16be "},
    {"IBM866", " 866 cp866 csibm866 ibm866 "},
    {"ISO-8859-2",
     " csisolatin2 iso-8859-2 iso-ir-101 iso8859-2 iso88592 iso_8859-2 iso_8859-2:1987 l2 latin2 "},
    {"ISO-8859-3",
     " csisolatin3 iso-8859-3 iso-ir-109 iso8859-3 iso88593 iso_8859-3 iso_8859-3:1988 l3 latin3 "},
    {"ISO-8859-4",
     " csisolatin4 iso-8859-4 iso-ir-110 iso8859-4 iso88594 iso_8859-4 iso_8859-4:1988 l4 latin4 "},
    {"ISO-8859-5",
     " csisolatincyrillic cyrillic iso-8859-5 iso-ir-144 iso8859-5 iso88595 iso_8859-5 iso_8859-5:1988 "},
    {"ISO-8859-6",
     " arabic asmo-708 csiso88596e csiso88596i csisolatinarabic ecma-114 iso-8859-6 iso-8859-6-e "
     "iso-8859-6-i "
     "iso-ir-127 iso8859-6 iso88596 iso_8859-6 iso_8859-6:1987 "},
    {"ISO-8859-7",
     " csisolatingreek ecma-118 elot_928 greek greek8 iso-8859-7 iso-ir-126 iso8859-7 iso88597 iso_8859-7 "
     "iso_8859-7:1987 sun_eu_greek "},
    {"ISO-8859-8",
     " csiso88598e csisolatinhebrew hebrew iso-8859-8 iso-8859-8-e iso-ir-138 iso8859-8 iso88598 iso_8859-8 "
     "iso_8859-8:1988 visual csiso88598i iso-8859-8-i logical "},
    {"ISO-8859-10", " csisolatin6 iso-8859-10 iso-ir-157 iso8859-10 iso885910 l6 latin6 "},
    {"ISO-8859-13", " iso-8859-13 iso8859-13 iso885913 "},
    {"ISO-8859-14", " iso-8859-14 iso8859-14 iso885914 "},
    {"ISO-8859-15", " csisolatin9 iso-8859-15 iso8859-15 iso885915 iso_8859-15 l9 "},
    {"ISO-8859-16", " iso-8859-16 "},
    {"KOI8-R", " cskoi8r koi koi8 koi8-r koi8_r "},
    {"KOI8-U", " koi8-ru koi8-u "},
    {"MACINTOSH", " csmacintosh mac macintosh x-mac-roman "},
    {"CP874", " dos-874 iso-8859-11 iso8859-11 iso885911 tis-620 windows-874 "},
    {"CP1250", " cp1250 windows-1250 x-cp1250 "},
    {"CP1251", " cp1251 windows-1251 x-cp1251 "},
    {"CP1252",
     " ansi_x3.4-1968 ascii cp1252 cp819 csisolatin1 ibm819 iso-8859-1 iso-ir-100 iso8859-1 iso88591 "
     "iso_8859-1 "
     "iso_8859-1:1987 l1 latin1 us-ascii windows-1252 x-cp1252 x-user-defined "},
    {"CP1253", " cp1253 windows-1253 x-cp1253 "},
    {"CP1254",
     " cp1254 csisolatin5 iso-8859-9 iso-ir-148 iso8859-9 iso88599 iso_8859-9 iso_8859-9:1989 l5 latin5 "
     "windows-1254 x-cp1254 "},
    {"CP1255", " cp1255 windows-1255 x-cp1255 "},
    {"CP1256", " cp1256 windows-1256 x-cp1256 "},
    {"CP1257", " cp1257 windows-1257 x-cp1257 "},
    {"CP1258", " cp1258 windows-1258 x-cp1258 "},
    {"MAC-UK", " x-mac-cyrillic x-mac-ukrainian "},
    {"GB18030", " chinese csgb2312 csiso58gb231280 gb2312 gb_2312 gb_2312-80 gbk iso-ir-58 x-gbk gb18030 "},
    {"BIG5-HKSCS", " big5 big5-hkscs cn-big5 csbig5 x-x-big5 "},
    {"EUC-JP-MS", " cseucpkdfmtjapanese euc-jp x-euc-jp "},
    {"ISO-2022-JP", " csiso2022jp iso-2022-jp "},
    {"CP932", " csshiftjis ms932 ms_kanji shift-jis shift_jis sjis windows-31j x-sjis "},
    {"CP949",
     " cseuckr csksc56011987 euc-kr iso-ir-149 korean ks_c_5601-1987 ks_c_5601-1989 ksc5601 ksc_5601 "
     "windows-949 "},
};

// The first bytes of a file that give its character set away.
struct Mark {
  std::string_view bytes;
  const char* converter;
  bool isText;  // the "<" that HTML begins with, in UTF-16 without a byte order mark
};
using namespace std::string_view_literals;
constexpr Mark kMarks[] = {{"\xEF\xBB\xBF"sv, kUtf8, false},
                           {"\xFF\xFE"sv, "UTF-16LE", false},
                           {"\xFE\xFF"sv, "UTF-16BE", false},
                           {"<\0"sv, "UTF-16LE", true},
                           {"\0<"sv, "UTF-16BE", true}};

// As labels are compared: without white space around them, and in lower case.
std::string normalized(std::string_view label) { return asciiLowered(whiteSpaceCollapsed(label)); }

// The converter for a label in lower case; null for a label that browsers do not know.
const char* converterFor(const std::string& label) {
  if (label.find(' ') != std::string::npos) return nullptr;
  const std::string wanted = ' ' + label + ' ';
  for (const CharacterSet& each : kCharacterSets) {
    if (each.labels.find(wanted) != std::string_view::npos) return each.converter;
  }
  return nullptr;
}

// What follows "charset=" in the content of a <META>.
std::optional<std::string> charsetIn(const std::string& content) {
  constexpr std::string_view kCharset = "charset";
  std::size_t at = asciiLowered(content).find(kCharset);
  if (at == std::string::npos) return std::nullopt;
  at = content.find_first_not_of(" \t", at + kCharset.size());
  if (at == std::string::npos || content[at] != '=') return std::nullopt;
  at = content.find_first_not_of(" \t'\"", at + 1);
  if (at == std::string::npos) return std::nullopt;
  return content.substr(at, content.find_first_of(" \t'\";", at) - at);
}

std::optional<std::string> declaredBy(const Tag& meta) {
  if (const std::string_view* charset = meta.attribute("charset")) return htmlAttribute(*charset);
  const std::string_view* kind = meta.attribute("http-equiv");
  const std::string_view* content = meta.attribute("content");
  if (!kind || !content || normalized(*kind) != "content-type") return std::nullopt;
  return charsetIn(htmlAttribute(*content));
}

// The label that the first <META> with one declares, in lower case.
std::optional<std::string> declaredLabel(std::string_view html) {
  constexpr std::size_t kSearched = 4096;  // browsers look at 1,024 bytes
  HtmlTokenizer tokens(html.substr(0, kSearched));
  Tag tag;
  std::string_view text;
  while (tokens.next(tag, text) || !text.empty()) {
    if (!text.empty() || tag.name != "meta") continue;
    if (const auto declared = declaredBy(tag)) return normalized(*declared);
  }
  return std::nullopt;
}

// The number of the line that the text ends in, counted from 1.
std::size_t lastLine(std::string_view text) {
  std::size_t line = 1;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isHalf = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
    if ((text[i] == '\n' || text[i] == '\r') && !isHalf) ++line;
  }
  return line;
}

// The character set of a file, and how it is known.
struct Chosen {
  std::string converter;
  std::size_t markSize = 0;
  std::optional<std::string> label;  // where the file declares it
};

Chosen chosenFor(std::string_view bytes, const std::string& name) {
  for (const Mark& mark : kMarks) {
    if (bytes.starts_with(mark.bytes)) {
      return {mark.converter, mark.isText ? 0 : mark.bytes.size(), std::nullopt};
    }
  }
  const auto label = declaredLabel(bytes);
  if (!label) return {kUtf8, 0, std::nullopt};
  if (const char* converter = converterFor(*label)) return {converter, 0, label};
  throw Refused{
      tr("%1 declares the character set \"%2\", which is not known. Save it as UTF-8, and declare that.",
         name, *label)};
}

}  // namespace

std::string htmlAsUtf8(std::string_view bytes, const std::string& name) {
  const Chosen chosen = chosenFor(bytes, name);
  auto decoded = decodeText(bytes.substr(chosen.markSize), chosen.converter);
  if (!decoded) {
    throw Refused{
        tr("%1 is in the character set %2, which this system's iconv cannot convert. Save it as UTF-8, and "
           "declare that.",
           name, chosen.converter)};
  }
  if (!decoded->fault) return std::move(decoded->text);
  const std::string offset = std::to_string(chosen.markSize + *decoded->fault);
  const std::string line = std::to_string(lastLine(decoded->text));
  throw Refused{
      chosen.label
          ? tr("%1 cannot be read in the character set \"%2\", which it declares: the bytes at offset %3, "
               "line %4, are no character of it.",
               name, *chosen.label, offset, line)
          : tr("%1 cannot be read in the character set %2: the bytes at offset %3, line %4, are no character "
               "of it. A file in another one declares it, as in <META CHARSET=\"windows-1251\">.",
               name, chosen.converter, offset, line)};
}

}  // namespace corvane::loomerctl
