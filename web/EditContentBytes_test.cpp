// The page editor keeps a file's bytes: opening it and pressing Apply with no edit leaves
// it identical. The browser is modelled as the HTML standard describes it: the page's
// line ends become LF, one newline right after <textarea> is dropped, character
// references are decoded, every line end of the sent text area is CRLF, and the form goes
// out URL-encoded as UTF-8. Also: NUL bytes in names, names with quotes, blanks and
// non-ASCII letters, escaping of every value the editor shows, and links out of the root.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "site/ZOLServerSite.h"
#include "views/ViewEncoder.h"
#include "web/AdminPageFixture.h"

namespace {

namespace fs = std::filesystem;

std::string ReadBytes(const std::string& path) {
  std::string bytes;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return "<missing>";
  char buffer[4096];
  std::size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) bytes.append(buffer, n);
  std::fclose(file);
  return bytes;
}

// Appends the UTF-8 bytes of a code point.
void AppendUtf8(std::string& out, unsigned long code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

// Character references as a browser decodes them in text and attribute values: numeric
// ones and the named ones that a template is likely to hold. Any other "&name;" fails the
// test, since a browser would decode it too and this model would not know to what.
std::string DecodeReferences(const std::string& text) {
  static const std::map<std::string, unsigned long> kNamed = {
      {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}, {"nbsp", 0xA0}, {"copy", 0xA9}};
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '&') {
      out += text[i];
      continue;
    }
    const auto semicolon = text.find(';', i);
    const std::string name = semicolon == std::string::npos ? std::string() : text.substr(i + 1, semicolon - i - 1);
    if (!name.empty() && name[0] == '#') {
      const bool hex = name.size() > 1 && (name[1] == 'x' || name[1] == 'X');
      AppendUtf8(out, std::stoul(name.substr(hex ? 2 : 1), nullptr, hex ? 16 : 10));
      i = semicolon;
    } else if (kNamed.count(name) != 0) {
      AppendUtf8(out, kNamed.at(name));
      i = semicolon;
    } else {
      const bool looksLikeReference =
          !name.empty() && name.size() < 32 && name.find_first_of(" \t\n<>&") == std::string::npos;
      EXPECT_FALSE(looksLikeReference) << "a browser would decode &" << name << ";";
      out += '&';
    }
  }
  return out;
}

// The HTML input stream's preprocessing: CRLF and CR alone become LF.
std::string NormalizeNewlines(const std::string& html) {
  std::string out;
  for (std::size_t i = 0; i < html.size(); ++i) {
    if (html[i] == '\r') {
      out += '\n';
      if (i + 1 < html.size() && html[i + 1] == '\n') ++i;
    } else {
      out += html[i];
    }
  }
  return out;
}

// The value a form sends for a text area: every line end as CRLF.
std::string SubmittedLineEnds(const std::string& value) {
  std::string out;
  for (char c : value) {
    if (c == '\n') {
      out += "\r\n";
    } else {
      out += c;
    }
  }
  return out;
}

// application/x-www-form-urlencoded as a browser writes it for a UTF-8 form.
std::string FormEncode(const std::string& value) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '*' || c == '-' || c == '.' || c == '_') {
      out += c;
    } else if (c == ' ') {
      out += '+';
    } else {
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 0x0F];
    }
  }
  return out;
}

struct BrowserForm {
  bool Found = false;
  std::map<std::string, std::string> Fields;  // form-encoded, as the browser sends them
  std::string TextAreaValue;                  // decoded, before the submission's CRLF
};

// What a browser makes of the editor's page: the values of the form's hidden inputs and
// its text area, ready to be sent.
BrowserForm ReadForm(const std::string& pageHtml) {
  BrowserForm form;
  const std::string html = NormalizeNewlines(pageHtml);
  const auto formStart = html.find("<form name='edit'");
  if (formStart == std::string::npos) return form;
  const std::regex input("<input type='hidden' name='([a-z]+)' value='([^']*)'>", std::regex::icase);
  for (auto it = std::sregex_iterator(html.begin() + static_cast<long>(formStart), html.end(), input);
       it != std::sregex_iterator(); ++it) {
    const std::string name = (*it)[1];
    form.Fields[name] = FormEncode(DecodeReferences((*it)[2]));
  }
  const auto open = html.find("<textarea", formStart);
  if (open == std::string::npos) return form;
  const auto contentStart = html.find('>', open) + 1;
  const auto close = html.find("</textarea>", contentStart);
  if (close == std::string::npos) return form;
  std::string raw = html.substr(contentStart, close - contentStart);
  if (!raw.empty() && raw[0] == '\n') raw.erase(0, 1);
  form.TextAreaValue = DecodeReferences(raw);
  form.Fields["content"] = FormEncode(SubmittedLineEnds(form.TextAreaValue));
  form.Found = true;
  return form;
}

// A running server with one site "main" whose root is the folder "site".
struct Editor : ::testing::Test {
  void SetUp() override {
    ASSERT_TRUE(admin.PtyOk);
    Root = admin.StartWithOneSite("css/a.css", "a { }\n");
    ASSERT_EQ(admin.Server->GetSites().size(), 1u);
  }

  CKVTHttpResponse Open(const std::string& path, const std::string& file, const std::string& token = "") {
    CKVTHttpRequest request;
    request.Method = 1;
    request.Path = "main/editcontent.html";
    request.Attributes = {{"path", path}, {"file", file}};
    request.FormToken = token;
    return admin.Handle(request.Path, request);
  }

  // Opens the file, sends the form back untouched, and gives the file's bytes after.
  std::string OpenAndApply(const std::string& path, const std::string& file) {
    const CKVTHttpResponse page = Open(path, file);
    EXPECT_EQ(page.Status, 200) << page.BodyText();
    const BrowserForm form = ReadForm(page.BodyText());
    EXPECT_TRUE(form.Found) << page.BodyText();
    const CKVTHttpResponse saved = admin.Post("main/editcontent.html", form.Fields);
    EXPECT_EQ(saved.Status, 301) << saved.BodyText();
    return ReadBytes(Root + "/" + path + file);
  }

  AdminPageFixture admin;
  std::string Root;
};

// Every case that a browser round trip can spoil, in one file.
std::string AllTheCases(const std::string& lineEnd, bool finalNewline) {
  const std::vector<std::string> lines = {"",  // a first line that is empty
                                          "<p>&amp; &lt;b&gt; &nbsp; &copy; &#169; &euro; AT&T</p>",
                                          "\tindented\twith tabs\t",
                                          "UTF-8: Gr\xC3\xBC\xC3\x9F"
                                          "e, \xE6\x97\xA5\xE6\x9C\xAC, \xF0\x9F\x8F\x81, \xC2\xA0 (no-break space)",
                                          "</textarea><script>document.title='x'</script>",
                                          "'single' \"double\" <zol_label name=\"flag\"/>",
                                          "",
                                          "last line"};
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    text += lines[i];
    if (i + 1 < lines.size() || finalNewline) text += lineEnd;
  }
  return text;
}

}  // namespace

TEST_F(Editor, ApplyWithoutAnEditKeepsEveryByteOfLfAndCrlfFilesWithAndWithoutAFinalNewline) {
  for (const std::string lineEnd : {"\n", "\r\n"}) {
    for (const bool finalNewline : {true, false}) {
      const std::string original = AllTheCases(lineEnd, finalNewline);
      admin.Scope.Folder.Write("site/pages/home.zol", original);
      EXPECT_EQ(OpenAndApply("pages/", "home.zol"), original)
          << (lineEnd == "\n" ? "LF" : "CRLF") << (finalNewline ? " with" : " without") << " a final newline";
    }
  }
}

TEST_F(Editor, TheTextAreaShowsTheFilesTextAndTheFormDeclaresUtf8) {
  const std::string original = AllTheCases("\n", true);
  admin.Scope.Folder.Write("site/pages/home.zol", original);
  const CKVTHttpResponse page = Open("pages/", "home.zol");
  const std::string body = page.BodyText();
  EXPECT_NE(body.find("accept-charset='UTF-8'"), std::string::npos);
  EXPECT_EQ(body.find("</textarea><script>"), std::string::npos) << "the file's text closed the text area";
  EXPECT_EQ(ReadForm(body).TextAreaValue, original);
}

TEST_F(Editor, FilesWithQuotesBlanksAndNonAsciiLettersInTheirNamesOpenAndSave) {
  for (const std::string name : {"q'uo\"te.css", "with blank.css",
                                 "Gr\xC3\xBC\xC3\x9F"
                                 "e.css"}) {
    const std::string original = "p { }\n/* " + name + " */\n";
    admin.Scope.Folder.Write("site/my folder/" + name, original);
    EXPECT_EQ(OpenAndApply("my folder/", name), original) << name;
    // An edit reaches the very file.
    const BrowserForm form = ReadForm(Open("my folder/", name).BodyText());
    std::map<std::string, std::string> fields = form.Fields;
    fields["content"] = FormEncode("changed\r\n");
    EXPECT_EQ(admin.Post("main/editcontent.html", fields).Status, 301) << name;
    EXPECT_EQ(ReadBytes(Root + "/my folder/" + name), "changed\n") << name;
  }
}

TEST_F(Editor, AFileWithMixedLineEndsGetsItsMoreFrequentOneThroughoutAndIsToldSo) {
  admin.Scope.Folder.Write("site/mixed.css", "a\nb\r\nc\r\n");
  const CKVTHttpResponse page = Open("", "mixed.css");
  EXPECT_NE(page.BodyText().find("This file mixes line ends; Apply Changes gives every line CRLF line ends."),
            std::string::npos);
  EXPECT_EQ(OpenAndApply("", "mixed.css"), "a\r\nb\r\nc\r\n");
  admin.Scope.Folder.Write("site/mixed.css", "a\nb\nc\r\n");
  EXPECT_EQ(OpenAndApply("", "mixed.css"), "a\nb\nc\n");
}

TEST_F(Editor, ANulByteInThePathOrNameIsRefusedWith400AndNothingIsWritten) {
  admin.Scope.Folder.Write("site/style.css", "keep");
  const std::string nul(1, '\0');
  EXPECT_EQ(Open("", "style.css" + nul + "junk.zol").Status, 400);
  EXPECT_EQ(Open("css/" + nul, "a.css").Status, 400);
  for (const auto& [path, file] : std::vector<std::pair<std::string, std::string>>{
           {"", "style.css%00junk.zol"}, {"%00", "style.css"}, {"", "style.css%00"}}) {
    const CKVTHttpResponse response =
        admin.Post("main/editcontent.html", {{"path", path}, {"file", file}, {"content", "gone"}});
    EXPECT_EQ(response.Status, 400) << path << " " << file;
    EXPECT_NE(response.BodyText().find("NUL"), std::string::npos);
  }
  EXPECT_EQ(ReadBytes(Root + "/style.css"), "keep");
}

TEST_F(Editor, TheEditorSaysWhichFileIsOpenEscaped) {
  const std::string name = "<img src=x onerror=alert(1)>.css";
  admin.Scope.Folder.Write("site/css/" + name, "x");
  const std::string body = Open("css/", name).BodyText();
  EXPECT_NE(body.find("<p>Editing css/&lt;img src=x onerror=alert(1)&gt;.css</p>"), std::string::npos) << body;
  EXPECT_EQ(body.find("<img"), std::string::npos);
  EXPECT_NE(Open("css/", "a.css").BodyText().find("<p>Editing css/a.css</p>"), std::string::npos);
}

TEST_F(Editor, HostileNamesAreEscapedInEveryPlaceTheyLand) {
  const std::string hostile = "\"'><script>alert(1)</script>";
  const CKVTHttpResponse missing = Open("", hostile + ".css");
  EXPECT_EQ(missing.Status, 404);
  EXPECT_EQ(missing.BodyText(), "File not found: &quot;&#39;&gt;&lt;script&gt;alert(1)&lt;/script&gt;.css");
  const CKVTHttpResponse failed =
      admin.Post("main/editcontent.html", {{"path", ""}, {"file", FormEncode(hostile + ".css")}, {"content", "x"}});
  EXPECT_EQ(failed.Status, 404);
  EXPECT_EQ(failed.BodyText().rfind("Failed to write file: ", 0), 0u);
  EXPECT_EQ(failed.BodyText().find("<script>"), std::string::npos);
  EXPECT_EQ(failed.BodyText().find('\\'), std::string::npos) << "a Linux path is shown with /";

  // A folder with a hostile name: the hidden field, the Cancel link and the redirect.
  const std::string folder = "d'i\"r<b>&x=1 ";
  admin.Scope.Folder.Write("site/" + folder + "/f.css", "f");
  const std::string body = Open(folder + "/", "f.css").BodyText();
  EXPECT_EQ(body.find("<b>"), std::string::npos);
  EXPECT_NE(body.find("<input type='hidden' name='path' value='d&#39;i&quot;r&lt;b&gt;&amp;x=1 /'>"), std::string::npos)
      << body;
  EXPECT_NE(body.find("onclick=\"location.href='content.html?path=d%27i%22r%3Cb%3E%26x%3D1%20%2F'\""),
            std::string::npos)
      << body;
  const BrowserForm form = ReadForm(body);
  const CKVTHttpResponse saved = admin.Post("main/editcontent.html", form.Fields);
  EXPECT_EQ(saved.Status, 301);
  EXPECT_EQ(saved.Headers.at("location"), "content.html?path=d%27i%22r%3Cb%3E%26x%3D1%20%2F");
}

TEST_F(Editor, TheFormCarriesTheAntiForgeryToken) {
  const std::string body = Open("css/", "a.css", "t0k'en").BodyText();
  EXPECT_NE(body.find("<INPUT type='hidden' name='formtoken' value='t0k&#39;en'>"), std::string::npos) << body;
}

TEST_F(Editor, ViewNamesAndTheirTranslationsAreEscaped) {
  admin.Scope.Package.Translations["lgView_Results"] = "Results <i>now</i>";
  CRMComm& comm = *admin.Server->GetComm();
  comm.Initialize(0);
  comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CBaseDataComm model;
  AddTrackAndEventGroup(model);
  Deliver(comm, DataEncoder::Snapshot(model));
  Deliver(comm, ViewEncoder::AllViews({"lgView_Results", "x'><img src=y onerror=alert(1)>"}));
  const std::string body = Open("css/", "a.css").BodyText();
  EXPECT_NE(body.find("<OPTION VALUE='lgView_Results' SELECTED>Results &lt;i&gt;now&lt;/i&gt;\n"), std::string::npos)
      << body;
  EXPECT_NE(body.find("<OPTION VALUE='x&#39;&gt;&lt;img src=y onerror=alert(1)&gt;'>"), std::string::npos) << body;
  EXPECT_EQ(body.find("<img"), std::string::npos);
  EXPECT_EQ(body.find("<i>"), std::string::npos);
}

TEST_F(Editor, FilesBehindLinksOutOfTheRootAreNeitherOpenedNorWritten) {
  admin.Scope.Folder.Write("outside/secret.css", "secret");
  fs::create_symlink(admin.Scope.Folder.File("outside"), Root + "/outdir");
  fs::create_symlink(admin.Scope.Folder.File("outside/secret.css"), Root + "/out.css");
  for (const auto& [path, file] : std::vector<std::pair<std::string, std::string>>{
           {"outdir/", "secret.css"}, {"", "outdir/secret.css"}, {"", "out.css"}}) {
    const CKVTHttpResponse get = Open(path, file);
    EXPECT_EQ(get.Status, 404) << path << file;
    EXPECT_EQ(get.BodyText().find("secret;"), std::string::npos);
    const CKVTHttpResponse post = admin.Post(
        "main/editcontent.html", {{"path", FormEncode(path)}, {"file", FormEncode(file)}, {"content", "gone"}});
    EXPECT_EQ(post.Status, 404) << path << file;
  }
  EXPECT_EQ(ReadBytes(admin.Scope.Folder.File("outside/secret.css")), "secret");
}

TEST_F(Editor, AFileThatIsNoUtf8TextOrTooLargeIsNotPutIntoTheForm) {
  admin.Scope.Folder.Write("site/latin1.css", "caf\xE9 { }");
  const CKVTHttpResponse latin1 = Open("", "latin1.css");
  EXPECT_EQ(latin1.Status, 200);
  EXPECT_EQ(latin1.BodyText().find("<form"), std::string::npos);
  EXPECT_NE(latin1.BodyText().find("not UTF-8 text"), std::string::npos);
  admin.Scope.Folder.Write("site/big.css", std::string(200 * 1024, 'x'));
  const CKVTHttpResponse big = Open("", "big.css");
  EXPECT_EQ(big.BodyText().find("<form"), std::string::npos);
  EXPECT_NE(big.BodyText().find("too large"), std::string::npos);
}
