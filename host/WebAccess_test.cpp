// The web server's checks and its frame, without a server.
#include "host/WebAccess.h"

#include <gtest/gtest.h>

#include "frame/ModuleMessage.h"
#include "host/WebFrame.h"
#include "host/WebServer.h"

TEST(WebAccess, CredentialsAreTheFirstLineUserColonPassword) {
  WebCredentials credentials;
  std::string error;
  ASSERT_TRUE(CWebAccess::ParseCredentials("staff:pa:ss word\r\nignored\n", credentials, error));
  EXPECT_EQ(credentials.User, "staff");
  EXPECT_EQ(credentials.Password, "pa:ss word");
  for (const char* bad : {"", "\n", "staff", ":password", "staff:", "staff:\nnext"}) {
    EXPECT_FALSE(CWebAccess::ParseCredentials(bad, credentials, error)) << bad;
  }
}

TEST(WebAccess, BasicAuthorizationMatchesOnlyTheExactCredentials) {
  const WebCredentials credentials{"Aladdin", "open sesame"};
  EXPECT_TRUE(CWebAccess::Authorized("Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==", credentials));
  EXPECT_TRUE(CWebAccess::Authorized("basic  QWxhZGRpbjpvcGVuIHNlc2FtZQ== ", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("Basic", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("Bearer QWxhZGRpbjpvcGVuIHNlc2FtZQ==", credentials));
  // "Aladdin:open sesamE", a longer and a shorter password, broken base64.
  EXPECT_FALSE(CWebAccess::Authorized("Basic QWxhZGRpbjpvcGVuIHNlc2FtRQ==", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("Basic QWxhZGRpbjpvcGVuIHNlc2FtZTE=", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("Basic QWxhZGRpbjpvcGVu", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ=", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("Basic QWxh=GRpbjpvcGVuIHNlc2FtZQ==", credentials));
  EXPECT_FALSE(CWebAccess::Authorized("Basic !!!!", credentials));
}

TEST(WebAccess, OriginsAreComparedWithTheHostTheRequestWentTo) {
  EXPECT_EQ(CWebAccess::OriginOf("http://127.0.0.1:8080/zol/x.html?a=b"), "http://127.0.0.1:8080");
  EXPECT_EQ(CWebAccess::OriginOf("HTTP://LocalHost:81"), "http://localhost:81");
  EXPECT_EQ(CWebAccess::OriginOf("/zol/x.html"), "");
  EXPECT_EQ(CWebAccess::OriginOf("http://user@evil/"), "");
  EXPECT_TRUE(CWebAccess::SameOrigin("http://127.0.0.1:8080", "", "127.0.0.1:8080"));
  EXPECT_TRUE(CWebAccess::SameOrigin("", "http://127.0.0.1:8080/zol/_server/index.html", "127.0.0.1:8080"));
  EXPECT_TRUE(CWebAccess::SameOrigin("", "", "127.0.0.1:8080"));
  EXPECT_FALSE(CWebAccess::SameOrigin("http://127.0.0.1:8081", "", "127.0.0.1:8080"));
  EXPECT_FALSE(CWebAccess::SameOrigin("https://127.0.0.1:8080", "", "127.0.0.1:8080"));
  EXPECT_FALSE(CWebAccess::SameOrigin("null", "", "127.0.0.1:8080"));
  EXPECT_FALSE(CWebAccess::SameOrigin("", "http://evil.example/a", "127.0.0.1:8080"));
  // The Origin decides when both are there.
  EXPECT_FALSE(CWebAccess::SameOrigin("http://evil.example", "http://127.0.0.1:8080/", "127.0.0.1:8080"));
}

TEST(WebAccess, LoopbackHostsAreThisMachinesNamesOnly) {
  for (const char* host : {"127.0.0.1", "127.0.0.1:8080", "localhost:8080", "LOCALHOST", "127.1.2.3:1", "[::1]:80"}) {
    EXPECT_TRUE(CWebAccess::LoopbackHost(host)) << host;
  }
  for (const char* host : {"", "evil.example", "127.0.0.1.evil.example", "127.evil", "10.0.0.1:8080",
                           "localhost.evil.example", "[::1]x", "127.0.0:1"}) {
    EXPECT_FALSE(CWebAccess::LoopbackHost(host)) << host;
  }
}

TEST(WebAccess, UnsafePathsHaveADotDotComponentOrControlBytes) {
  for (const char* path : {"/zol/../x", "/zol/..", "..", "/zol/a\\..\\b", "/zol/x/../../y"}) {
    EXPECT_TRUE(CWebAccess::UnsafePath(path)) << path;
  }
  EXPECT_TRUE(CWebAccess::UnsafePath(std::string("/zol/a\0b", 8)));
  for (const char* path : {"/zol/_server/index.html", "/zol/..x/y", "/zol/x../y", "/zol/.../y", "/zol/./y", "/"}) {
    EXPECT_FALSE(CWebAccess::UnsafePath(path)) << path;
  }
}

TEST(WebAccess, QueriesAreDecodedAndFormsKeptAsSent) {
  EXPECT_EQ(CWebAccess::Decode("a%41b+c", true), "aAb c");
  EXPECT_EQ(CWebAccess::Decode("a%41b+c", false), "aAb+c");
  EXPECT_EQ(CWebAccess::Decode("%zz%4%", true), "%zz%4%");
  EXPECT_EQ(CWebAccess::Decode("%2e%2E", true), "..");
  const auto query = CWebAccess::ParsePairs("path=css%2Fdeep&file=a+b.css&flag&=lost&&path2=", true);
  EXPECT_EQ(query.at("path"), "css/deep");
  EXPECT_EQ(query.at("file"), "a b.css");
  EXPECT_EQ(query.at("flag"), "");
  EXPECT_EQ(query.at("path2"), "");
  EXPECT_EQ(query.count(""), 0u);
  const auto form = CWebAccess::ParsePairs("content=%3Czol%3E+x&portid=1&portid=2", false);
  EXPECT_EQ(form.at("content"), "%3Czol%3E+x");
  EXPECT_EQ(form.at("portid"), "2");
  EXPECT_TRUE(CWebAccess::ParsePairs("", true).empty());
}

TEST(WebFrame, DocumentHasTheHeadTextTheMenuThePrintLinkAndTheNote) {
  WebModuleRegistration module{"ZOL Server", "zol", "_server/index.html", {{"a b/content.html", "Site: 'a<b>'"}}};
  WebFrameContent content;
  content.HeadText = "\t<META HTTP-EQUIV=\"refresh\" CONTENT=\"60\">";
  content.PrintLink = "/zol/a b/content.html?PrinterFriendly=yes";
  content.Body = "<P>the body</P>";
  const std::string page = CWebFrame::Document({module}, content);
  const auto headEnd = page.find("</HEAD>");
  EXPECT_LT(page.find(content.HeadText), headEnd);
  EXPECT_NE(page.find("<A HREF='/zol/_server/index.html'>ZOL Server</A>"), std::string::npos) << page;
  EXPECT_NE(page.find("<A HREF='/zol/a b/content.html'>Site: &#39;a&lt;b&gt;&#39;</A>"), std::string::npos) << page;
  EXPECT_NE(page.find("PrinterFriendly=yes' target='_blank'>Print</A>"), std::string::npos);
  EXPECT_GT(page.find("<P>the body</P>"), headEnd);
  EXPECT_NE(page.find("Config/ZOLServer.ini"), std::string::npos);

  content.PrinterFriendly = true;
  const std::string print = CWebFrame::Document({module}, content);
  EXPECT_EQ(print.find("FrameMenu"), std::string::npos);
  EXPECT_EQ(print.find(">Print</A>"), std::string::npos);
  EXPECT_NE(print.find("<P>the body</P>"), std::string::npos);
}

TEST(WebFrame, FolderImageIsAWellFormedSixteenPixelGif) {
  const std::string& gif = CWebFrame::FolderImage();
  ASSERT_GT(gif.size(), 13u + 12u);
  EXPECT_EQ(gif.substr(0, 6), "GIF89a");
  EXPECT_EQ(static_cast<unsigned char>(gif[6]), 16);
  EXPECT_EQ(static_cast<unsigned char>(gif[8]), 16);
  EXPECT_EQ(gif.back(), ';');
  // The blocks of image data add up to the end of the file.
  const std::size_t imageStart = 13 + 12 + 8;  // header, colour table, graphic control
  ASSERT_EQ(gif[imageStart], ',');
  std::size_t at = imageStart + 10 + 1;  // descriptor, code size
  while (at < gif.size() && gif[at] != '\0') at += 1 + static_cast<unsigned char>(gif[at]);
  EXPECT_EQ(at + 2, gif.size());
}

TEST(WebAccess, RegistrationIsReadAsTheModuleWritesIt) {
  CModuleMessage message(kMsgWebRegisterModule, kWebServerClass, 0, 0);
  message << std::string("ZOL Server") << std::string("zol") << std::string("_server/index.html") << 2
          << std::string("a/content.html") << std::string("Site: 'a'") << std::string("b/content.html")
          << std::string("Site: 'b'");
  message.Reset();
  WebModuleRegistration registration;
  ASSERT_TRUE(CWebServerPeer::ReadRegistration(message, registration));
  EXPECT_EQ(registration.Title, "ZOL Server");
  EXPECT_EQ(registration.Prefix, "zol");
  EXPECT_EQ(registration.HomePage, "_server/index.html");
  ASSERT_EQ(registration.MenuPages.size(), 2u);
  EXPECT_EQ(registration.MenuPages[1].first, "b/content.html");
  EXPECT_EQ(registration.MenuPages[1].second, "Site: 'b'");

  // Cut short, a count beyond the pages, a prefix with a separator.
  CModuleMessage shortMessage(kMsgWebRegisterModule, kWebServerClass, 0, 0);
  shortMessage << std::string("ZOL Server") << std::string("zol") << std::string("_server/index.html") << 3
               << std::string("a/content.html") << std::string("Site: 'a'");
  shortMessage.Reset();
  EXPECT_FALSE(CWebServerPeer::ReadRegistration(shortMessage, registration));
  CModuleMessage slash(kMsgWebRegisterModule, kWebServerClass, 0, 0);
  slash << std::string("T") << std::string("a/b") << std::string("home") << 0;
  slash.Reset();
  EXPECT_FALSE(CWebServerPeer::ReadRegistration(slash, registration));
}

TEST(WebAccess, OverHttpsTheOriginMustBeHttps) {
  EXPECT_TRUE(CWebAccess::SameOrigin("https://127.0.0.1:8443", "", "127.0.0.1:8443", "https"));
  EXPECT_TRUE(CWebAccess::SameOrigin("", "https://127.0.0.1:8443/zol/_server/index.html", "127.0.0.1:8443", "https"));
  EXPECT_FALSE(CWebAccess::SameOrigin("http://127.0.0.1:8443", "", "127.0.0.1:8443", "https"));
  EXPECT_FALSE(CWebAccess::SameOrigin("", "http://127.0.0.1:8443/", "127.0.0.1:8443", "https"));
}

TEST(WebFrame, HeadDeclaresUtf8AndLinksTheIcon) {
  WebModuleRegistration module{"ZOL Server", "zol", "_server/index.html", {}};
  WebFrameContent content;
  content.Body = "<P>x</P>";
  const std::string html = CWebFrame::Document({module}, content);
  const std::string head = html.substr(0, html.find("</HEAD>"));
  EXPECT_NE(head.find("<meta charset='utf-8'>"), std::string::npos) << head;
  EXPECT_NE(head.find("<LINK rel='icon' type='image/svg+xml' href='/favicon.ico'>"), std::string::npos) << head;
  // The charset comes first, within the first bytes of the document.
  EXPECT_LT(html.find("<meta charset='utf-8'>"), 100u);
  EXPECT_EQ(std::string(CWebFrame::kIconPath), "/favicon.ico");
  const std::string& icon = CWebFrame::Icon();
  EXPECT_EQ(icon.rfind("<svg xmlns='http://www.w3.org/2000/svg'", 0), 0u);
  EXPECT_NE(icon.find("</svg>"), std::string::npos);
  EXPECT_LT(icon.size(), 2000u);
}
