#include "CorvaneSyncClient/platform/pelto/place/S3Signature.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

// libcurl has a signature of its own, which some servers refuse. libsodium has the hash, and is here for the
// seals anyway.

namespace corvane::pelto {

namespace {

constexpr std::string_view kKeyPrefix = "AWS4";

std::string hexadecimal(std::string_view bytes) {
  std::string text(bytes.size() * 2 + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                 bytes.size());
  text.pop_back();  // the terminating zero
  return text;
}

std::string hashOf(std::string_view bytes) {
  std::array<char, crypto_hash_sha256_BYTES> hash{};
  crypto_hash_sha256(reinterpret_cast<unsigned char*>(hash.data()),
                     reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  return hexadecimal({hash.data(), hash.size()});
}

std::string authenticate(std::string_view key, std::string_view bytes) {
  std::array<char, crypto_auth_hmacsha256_BYTES> code{};
  crypto_auth_hmacsha256_state state;
  crypto_auth_hmacsha256_init(&state, reinterpret_cast<const unsigned char*>(key.data()), key.size());
  crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  crypto_auth_hmacsha256_final(&state, reinterpret_cast<unsigned char*>(code.data()));
  return {code.data(), code.size()};
}

std::string timeText(Date when) {
  const auto seconds = static_cast<time_t>(std::floor(when.seconds + kSecondsFrom1970To2001));
  tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &parts)};
}

}  // namespace

std::vector<std::string> signedS3Headers(const S3Keys& keys, std::string_view method, std::string_view host,
                                         std::string_view path, std::string_view query, std::string_view body,
                                         Date when) {
  const std::string time = timeText(when), day = time.substr(0, 8), contents = hashOf(body);
  const std::string names = "host;x-amz-content-sha256;x-amz-date";
  std::string request;
  for (const std::string_view line : {method, path, query}) request.append(line) += '\n';
  request.append("host:").append(host) +=
      "\nx-amz-content-sha256:" + contents + "\nx-amz-date:" + time + "\n\n" + names + '\n' + contents;
  const std::string scope = day + '/' + keys.region + "/s3/aws4_request";
  const std::string text = "AWS4-HMAC-SHA256\n" + time + '\n' + scope + '\n' + hashOf(request);
  SecretBytes key(kKeyPrefix.size() + keys.secret.view().size());
  std::copy(kKeyPrefix.begin(), kKeyPrefix.end(), key.data());
  std::copy(keys.secret.view().begin(), keys.secret.view().end(), key.data() + kKeyPrefix.size());
  for (const std::string& part : {day, keys.region, std::string("s3"), std::string("aws4_request")}) {
    std::string derived = authenticate(key.view(), part);
    const WipeAtEnd wiping(derived);
    key = SecretBytes(derived);
  }
  return {"x-amz-content-sha256: " + contents, "x-amz-date: " + time,
          "Authorization: AWS4-HMAC-SHA256 Credential=" + keys.id + '/' + scope + ",SignedHeaders=" + names +
              ",Signature=" + hexadecimal(authenticate(key.view(), text))};
}

}  // namespace corvane::pelto
