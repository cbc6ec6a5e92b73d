#include <signal.h>

#include <fstream>
#include <vector>

#include "tests/corvane-hub/HubServerTest.h"

namespace corvane {

namespace {

/// Servers with a certificate of their own, asked by curl.
class HubTls : public testing::Test {
 protected:
  HubTls() { makeCertificate("hub"); }

  /// NAME.crt and NAME.key, for "localhost".
  void makeCertificate(const std::string& name) const {
    const ProgramResult result = runProgram(
        {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
         "-days", "2", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout",
         directory / (name + ".key"), "-out", directory / (name + ".crt")});
    if (result.status != 0) throw std::runtime_error(result.output);
  }

  void copy(const std::string& from, const std::string& to) const {
    std::ifstream source(directory / from, std::ios::binary);
    std::ofstream(directory / to, std::ios::binary) << source.rdbuf();
  }

  std::string lines() const {
    return "listen = 127.0.0.1:0\ncertificate = " + directory / "hub.crt" +
           "\nkey = " + directory / "hub.key" + "\n";
  }

  /// What curl prints, which trusts the certificate NAME.crt alone.
  ProgramResult curl(const HubProcess& hub, const std::string& trusted,
                     const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"curl",      "-sS",
                                       "--cacert",  directory / (trusted + ".crt"),
                                       "--resolve", "localhost:" + std::to_string(hub.port()) + ":127.0.0.1",
                                       "-H",        "Authorization: Bearer " + token};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.push_back("https://localhost:" + std::to_string(hub.port()) + "/v1/o/f/1");
    return runProgram(arguments);
  }

  TemporaryDirectory directory;
  std::string token = accountCommand(directory.path(), {"add", "ada", "laptop"});
};

TEST_F(HubTls, AnObjectIsWrittenAndRead) {
  const HubProcess hub(directory.path(), lines());
  const std::string large(3'000'000, 'x');
  std::ofstream(directory / "large") << large;
  EXPECT_EQ(curl(hub, "hub", {"-T", directory / "large", "-w", "%{http_code}"}).output, "201");
  EXPECT_EQ(curl(hub, "hub", {"--tls-max", "1.2"}).output, large);
  EXPECT_EQ(curl(hub, "hub", {"--tlsv1.3"}).output, large);
}

TEST_F(HubTls, AConnectionWithoutTlsOrWithAnOldOneIsNotServed) {
  const HubProcess hub(directory.path(), lines());
  HubClient plain(hub.port(), token);
  plain.send(plain.request("GET", "/v1/o/f/1"));
  plain.endSending();
  EXPECT_TRUE(plain.isClosed());
  // Level 0 lets this client offer what the server has to refuse.
  EXPECT_NE(curl(hub, "hub", {"--tlsv1.1", "--tls-max", "1.1", "--ciphers", "DEFAULT@SECLEVEL=0"}).status, 0);
  EXPECT_EQ(curl(hub, "hub").status, 0);
}

TEST_F(HubTls, ARenewedCertificateIsTakenWhenItsFilesChange) {
  makeCertificate("renewed");
  const HubProcess hub(directory.path(), lines());
  EXPECT_NE(curl(hub, "renewed").status, 0);
  copy("renewed.key", "hub.key");
  copy("renewed.crt", "hub.crt");
  while (curl(hub, "renewed").status != 0) hub.awaitLog("has read its certificate again");
}

TEST_F(HubTls, ARenewedCertificateIsTakenAtOnceWhenAsked) {
  makeCertificate("renewed");
  const HubProcess hub(directory.path(), lines());
  copy("renewed.key", "hub.key");
  copy("renewed.crt", "hub.crt");
  hub.signal(SIGHUP);
  hub.awaitLog("has read its certificate again");
  EXPECT_EQ(curl(hub, "renewed").status, 0);
}

TEST_F(HubTls, ACertificateThatDoesNotFitIsNotTaken) {
  makeCertificate("other");
  copy("hub.crt", "first.crt");
  const HubProcess hub(directory.path(), lines());
  copy("other.crt", "hub.crt");  // without its key
  hub.signal(SIGHUP);
  hub.awaitLog("keeps the certificate that it has: the key ");
  EXPECT_EQ(curl(hub, "first").status, 0);
}

}  // namespace

}  // namespace corvane
