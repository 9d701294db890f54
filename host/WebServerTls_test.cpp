// zolhost's web server over HTTPS: a certificate and key serve the pages, bad ones stop
// the start with one line.
#include <gtest/gtest.h>

#include <signal.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/TempDir.h"
#include "testing/WebInstallation.h"

namespace {

// A self-signed certificate and its key in `folder`; false when openssl fails.
bool MakeCertificate(const TempDir& folder, const std::string& name) {
  const auto status =
      RunToEnd("/usr/bin/openssl",
               {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
                folder.File(name + "-key.pem"), "-out", folder.File(name + "-cert.pem"), "-days", "2", "-subj",
                "/CN=localhost"},
               folder.Path(), 30);
  return status == std::optional<int>(0);
}

// curl with the given arguments; its output (the body, then a line with the status).
std::string Curl(const TempDir& logs, std::vector<std::string> arguments) {
  std::vector<std::string> all = {"-sS", "--max-time", "8", "-w", "\n%{http_code}"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::string out;
  RunToEnd("/usr/bin/curl", all, logs.Path(), 15, &out);
  return out;
}

std::string LastLine(const std::string& text) {
  const auto end = text.find_last_not_of('\n');
  if (end == std::string::npos) return std::string();
  const auto start = text.rfind('\n', end);
  return text.substr(start == std::string::npos ? 0 : start + 1, end - (start == std::string::npos ? 0 : start + 1) + 1);
}

}  // namespace

TEST(ZolhostWebTls, CertificateAndKeyServeThePagesOverHttps) {
  TempDir secrets;
  ASSERT_TRUE(MakeCertificate(secrets, "site"));
  WebInstallation site({"--web-cert", secrets.File("site-cert.pem"), "--web-key", secrets.File("site-key.pem")});
  ASSERT_TRUE(site.Started());
  EXPECT_NE(site.Log().find("https://127.0.0.1:" + std::to_string(site.WebPort) + "/zol/_server/index.html"),
            std::string::npos)
      << site.Log();
  const std::string url = "https://127.0.0.1:" + std::to_string(site.WebPort);
  const std::string page = Curl(secrets, {"--insecure", url + "/zol/_server/index.html"});
  EXPECT_EQ(LastLine(page), "200") << page;
  EXPECT_NE(page.find("Welcome to the ZOL server"), std::string::npos) << page;
  // Without trusting the certificate the client refuses; plain HTTP gets no page.
  EXPECT_EQ(LastLine(Curl(secrets, {url + "/zol/_server/index.html"})), "000");
  const std::string plain = Curl(secrets, {"http://127.0.0.1:" + std::to_string(site.WebPort) + "/zol/_server/index.html"});
  EXPECT_EQ(plain.find("Welcome"), std::string::npos) << plain;
  // A form of this https origin with the token is taken; the same from http is not.
  const std::string token = FormTokenIn(page);
  ASSERT_EQ(token.size(), 32u);
  const std::string ownForm = Curl(secrets, {"--insecure", "-H", "Origin: " + url, "--data", "porttype=2&formtoken=" + token,
                                             url + "/zol/_server/index.html"});
  EXPECT_EQ(LastLine(ownForm), "301") << ownForm;
  const std::string httpOrigin =
      Curl(secrets, {"--insecure", "-H", "Origin: http://127.0.0.1:" + std::to_string(site.WebPort), "--data",
                     "porttype=2&formtoken=" + token, url + "/zol/_server/index.html"});
  EXPECT_EQ(LastLine(httpOrigin), "403") << httpOrigin;
}

TEST(ZolhostWebTls, ACertificateWithoutKeyOrAFileThatIsNoneIsOneLineAndExitTwo) {
  TempDir secrets;
  ASSERT_TRUE(MakeCertificate(secrets, "a"));
  ASSERT_TRUE(MakeCertificate(secrets, "b"));
  const std::string garbage = secrets.Write("garbage.pem", "-----BEGIN CERTIFICATE-----\nnot base64 at all\n-----END CERTIFICATE-----\n");
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  const std::string web = "127.0.0.1:" + std::to_string(port);
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--web-cert", secrets.File("a-cert.pem")}, "--web-key"},
      {{"--web-key", secrets.File("a-key.pem")}, "--web-cert"},
      {{"--web-cert", secrets.File("absent.pem"), "--web-key", secrets.File("a-key.pem")}, "cannot read"},
      {{"--web-cert", secrets.File("a-cert.pem"), "--web-key", secrets.File("absent.pem")}, "cannot read"},
      {{"--web-cert", garbage, "--web-key", secrets.File("a-key.pem")}, "certificate"},
      {{"--web-cert", secrets.File("a-cert.pem"), "--web-key", garbage}, "certificate"},
      {{"--web-cert", secrets.File("a-cert.pem"), "--web-key", secrets.File("b-key.pem")}, "certificate"},
  };
  for (const auto& [options, expected] : cases) {
    std::vector<std::string> arguments = {"--appdir", kExampleFolder, "--web", web};
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::string err;
    const auto status = RunToEnd(kZolhostProgram, arguments, secrets.Path(), 10, nullptr, &err);
    ASSERT_TRUE(status.has_value()) << expected;
    EXPECT_EQ(*status, 2) << expected << "\n" << err;
    EXPECT_NE(err.find(expected), std::string::npos) << err;
    const std::string last = err.substr(err.rfind('\n', err.size() - 2) + 1);
    EXPECT_EQ(last.rfind("zolhost: ", 0), 0u) << err;
  }
}

TEST(ZolhostWebTls, ANetworkAddressWithoutTlsSaysThePasswordTravelsInClearText) {
  TempDir secrets;
  const std::string file = secrets.Write("web-password", "staff:s3cret\n");
  const std::uint16_t page = platform::FindFreeTcpPort();
  const std::uint16_t port = platform::FindFreeTcpPort();
  TempDir appdir;
  ASSERT_TRUE(CopyExamples(appdir, page));
  ChildProcess host(kZolhostProgram, {"--appdir", appdir.Path(), "--web", "0.0.0.0:" + std::to_string(port), "--web-password-file", file},
                    secrets.Path());
  ASSERT_TRUE(host.WaitForStderr("administration pages at", 20)) << host.Stderr();
  const std::string log = host.Stderr();
  const auto at = log.find("clear text");
  ASSERT_NE(at, std::string::npos) << log;
  EXPECT_NE(log.find("--web-cert"), std::string::npos) << log;
  EXPECT_EQ(log.find("clear text", at + 1), std::string::npos) << "one line";
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
}
