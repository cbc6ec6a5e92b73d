#include "tools/loomerctl/report/ReportFrame.h"

#include <sodium.h>

#include <array>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Version.h"
#include "tools/loomerctl/report/Markup.h"

namespace corvane::loomerctl {

namespace {

// As a policy names an inline element by its text (Content Security Policy Level 3, 2.3.1).
std::string policySource(std::string_view text) {
  std::array<unsigned char, crypto_hash_sha256_BYTES> digest{};
  crypto_hash_sha256(digest.data(), reinterpret_cast<const unsigned char*>(text.data()), text.size());
  std::array<char, sodium_base64_ENCODED_LEN(crypto_hash_sha256_BYTES, sodium_base64_VARIANT_ORIGINAL)>
      base64{};
  sodium_bin2base64(base64.data(), base64.size(), digest.data(), digest.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  return std::string("'sha256-") + base64.data() + '\'';
}

}  // namespace

std::string pageBegin(std::string_view title) {
  const std::string policy = "default-src 'none'; style-src " + policySource(kReportStyle) + "; script-src " +
                             policySource(kReportScript) +
                             "; base-uri 'none'; form-action 'none'; require-trusted-types-for 'script';"
                             " trusted-types 'none'";
  std::string page = "<!DOC";
  page += "TYPE html>\n<html lang=\"" + asHtml(languageOfTexts()) +
          "\" dir=\"ltr\">\n<head>\n<meta charset=\"utf-8\">\n";
  page += "<meta http-equiv=\"Content-Security-Policy\" content=\"" + policy + "\">\n";
  page += "<meta name=\"referrer\" content=\"no-referrer\">\n";
  page += "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
  page += "<meta name=\"color-scheme\" content=\"light dark\">\n";
  page += std::string("<meta name=\"generator\" content=\"loomerctl ") + kVersion + "\">\n";
  page += "<title>" + asHtml(title) + "</title>\n<style>";
  page += kReportStyle;
  page += "</style>\n</head>\n<body>\n";
  return page;
}

std::string pageEnd() { return "<script>" + std::string(kReportScript) + "</script>\n</body>\n</html>\n"; }

}  // namespace corvane::loomerctl
