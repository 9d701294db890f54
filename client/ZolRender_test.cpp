#include "client/ZolRender.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "distribution/OutputPage.h"
#include "distribution/PacketFormat.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "testing/LivePageSupport.h"
#include "testing/ModuleFixture.h"

namespace {

using zolclient::PageWebName;
using zolclient::RenderedZolPage;
using zolclient::RenderZolPage;
using zolclient::ZolIncludeLookup;

// Pages by number, as a viewer would look up what it has received.
struct ReceivedPages {
  std::map<unsigned, std::string> Texts;
  ZolIncludeLookup Lookup() const {
    return [this](unsigned number) -> const std::string* {
      const auto found = Texts.find(number);
      return found == Texts.end() ? nullptr : &found->second;
    };
  }
};

RenderedZolPage Render(const std::string& text, const ReceivedPages& pages = {}) {
  return RenderZolPage(text, pages.Lookup());
}

// The body of a page made of `content` inside a bare zol root.
std::string Body(const std::string& content, const ReceivedPages& pages = {}) {
  return Render("<zol>" + content + "</zol>", pages).Body;
}

std::string Page(const std::string& content) { return "<zol version=\"1\">" + content + "</zol>"; }

std::size_t Occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

std::string ReadSourceFile(const std::string& relative) {
  std::ifstream file(std::string(ZOL_SOURCE_DIR) + "/" + relative, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

const std::string kNoteStart = "<p class=\"zol-note\">This page is not well-formed (";
const std::string kNoteEnd = "); it is shown as text.</p><pre class=\"zol-source\">";

// A page shown as text holds the note and the <pre>, and no other markup at all.
void ExpectShownAsText(const RenderedZolPage& page) {
  EXPECT_FALSE(page.WellFormed);
  const std::string& body = page.Body;
  ASSERT_EQ(body.compare(0, kNoteStart.size(), kNoteStart), 0) << body;
  const std::size_t noteEnd = body.find(kNoteEnd);
  ASSERT_NE(noteEnd, std::string::npos) << body;
  ASSERT_GE(body.size(), noteEnd + kNoteEnd.size() + 6);
  EXPECT_EQ(body.substr(body.size() - 6), "</pre>");
  const std::string reason = body.substr(kNoteStart.size(), noteEnd - kNoteStart.size());
  const std::string source = body.substr(noteEnd + kNoteEnd.size(), body.size() - 6 - noteEnd - kNoteEnd.size());
  EXPECT_FALSE(reason.empty());
  EXPECT_EQ(reason.find_first_of("<>"), std::string::npos) << reason;
  EXPECT_EQ(source.find_first_of("<>"), std::string::npos) << source;
  EXPECT_TRUE(page.Title.empty());
  EXPECT_TRUE(page.HeadExtras.empty());
}

}  // namespace

TEST(ZolRender, XmlDeclarationZolWrapperAndTrailingNulAreGone) {
  std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<zol version=\"1\"  id=\"x\"  type=\"html\" >"
                     "<p>Hi</p></zol>";
  text += '\0';
  text += "<after the root>";
  const RenderedZolPage page = Render(text);
  EXPECT_TRUE(page.WellFormed);
  EXPECT_EQ(page.Body, "<p>Hi</p>");
  EXPECT_EQ(page.Title, "");
  EXPECT_EQ(page.HeadExtras, "");
  EXPECT_EQ(page.RefreshSeconds, 0u);
}

TEST(ZolRender, DocumentGivesTitleHeadExtrasAndTheInnerHtmlOfItsBody) {
  const RenderedZolPage page = Render(Page(
      "<html>\n<head>\n<meta charset=\"utf-8\"/>\n<title>R &amp; S</title>\n"
      "<link rel=\"stylesheet\" type=\"text/css\" href=\"../style.css\"/>\n"
      "<script type=\"text/javascript\" src=\"clock.js\"></script>\n<style>td > b { color: red }</style>\n"
      "<meta http-equiv=\"refresh\" content=\"1\"/>\n</head>\n<body>\n<h1>x</h1>\n</body>\n</html>\n"));
  EXPECT_TRUE(page.WellFormed);
  EXPECT_EQ(page.Title, "R &amp; S");
  EXPECT_EQ(page.HeadExtras,
            "<meta charset=\"utf-8\"><link rel=\"stylesheet\" type=\"text/css\" href=\"../style.css\">"
            "<style>td > b { color: red }</style><meta content=\"1\">");
  EXPECT_EQ(page.Body, "\n<h1>x</h1>\n");
}

TEST(ZolRender, FragmentWithoutBodyGivesItsWholeContent) {
  const RenderedZolPage page = Render(Page("\n<div class=\"header\"><h1>Club</h1></div>\n"));
  EXPECT_EQ(page.Body, "\n<div class=\"header\"><h1>Club</h1></div>\n");
  EXPECT_EQ(page.Title, "");
}

TEST(ZolRender, TableHeadsBecomeOneRowOfThCells) {
  EXPECT_EQ(Body("<table class=\"results\"><zol_table type=\"practice\" >\n<zol_rh type='position'>Pos</zol_rh>\n"
                 "<zol_rh type='no'>No</zol_rh>\n<zol_rh type='Best Time'>Best &amp; lap</zol_rh>\n<zol_rh>Free</zol_rh>"
                 "</zol_table></table>"),
            "<table class=\"results\">\n<tr><th class=\"position\">Pos</th><th class=\"no\">No</th>"
            "<th class=\"besttime\">Best &amp; lap</th><th>Free</th></tr>\n\n\n</table>");
}

TEST(ZolRender, RowsKeepTheirTrOrGetOneAndCellsBecomeTheirText) {
  EXPECT_EQ(Body("<table><zol_table type=\"race\"><zol_rh type=\"no\">No</zol_rh><zol_rh type=\"name\">Name</zol_rh>"
                 "<zol_rr><tr><td><zol_rd>7</zol_rd></td><td><zol_rd>Ann</zol_rd></td></tr></zol_rr>"
                 "<zol_rr><zol_rd>9</zol_rd><zol_rd>Bo</zol_rd></zol_rr></zol_table></table>"),
            "<table><tr><th class=\"no\">No</th><th class=\"name\">Name</th></tr>"
            "<tr><td>7</td><td>Ann</td></tr><tr><td>9</td><td>Bo</td></tr></table>");
}

TEST(ZolRender, TableOutsideATableIsWrappedInOne) {
  EXPECT_EQ(Body("<div><zol_table type=\"race\"><zol_rr><zol_rd>1</zol_rd></zol_rr></zol_table></div>"),
            "<div><table class=\"zol-table\"><tr><td>1</td></tr></table></div>");
  // A cell is no table: the table inside it gets its own.
  EXPECT_EQ(Body("<table><tr><td><zol_table type=\"race\"></zol_table></td></tr></table>"),
            "<table><tr><td><table class=\"zol-table\"></table></td></tr></table>");
  EXPECT_EQ(Body("<table><tbody><zol_table type=\"race\"></zol_table></tbody></table>"), "<table><tbody></tbody></table>");
}

TEST(ZolRender, CellFlagsBecomeClassesOfTheirCellAndRow) {
  EXPECT_EQ(Body("<table><zol_table type=\"race\">"
                 "<zol_rr><tr><td><zol_rd>1</zol_rd></td><td class=\"laps\"><zol_rd flags='lapseparator'>5</zol_rd></td>"
                 "</tr></zol_rr>"
                 "<zol_rr flags='Leader|x y'><zol_rd flags='lapseparator|Fast'>6</zol_rd></zol_rr>"
                 "<zol_rr><zol_rd flags='lap\"sep&lt;'>7</zol_rd></zol_rr>"
                 "</zol_table></table>"),
            "<table>"
            "<tr class=\"zol-lapseparator\"><td>1</td><td class=\"laps zol-lapseparator\">5</td></tr>"
            "<tr class=\"zol-leader zol-x zol-y zol-lapseparator zol-fast\"><td class=\"zol-lapseparator zol-fast\">6</td></tr>"
            "<tr class=\"zol-lapsep\"><td class=\"zol-lapsep\">7</td></tr>"
            "</table>");
  // Outside a row a flagged cell is a span; one without flags is its text.
  EXPECT_EQ(Body("<p><zol_rd flags=\"lapseparator\">x</zol_rd> <zol_rd format=\"t\">y</zol_rd></p>"),
            "<p><span class=\"zol-lapseparator\">x</span> y</p>");
}

TEST(ZolRender, LabelBecomesASpanWithItsType) {
  EXPECT_EQ(Body("<h1><zol_label type=\"runname\">Free Practice</zol_label></h1><zol_label>-</zol_label>"),
            "<h1><span class=\"zol-label zol-label-runname\">Free Practice</span></h1><span class=\"zol-label\">-</span>");
}

TEST(ZolRender, IncludeIsReplacedByTheIncludedPagesBody) {
  ReceivedPages pages;
  pages.Texts[9] = "<?xml version=\"1.0\"?>\n<zol pagetype=\"part\"><div class=\"header\">H</div></zol>";
  pages.Texts[10] = Page("<html><head><title>T</title></head><body><p>whole</p></body></html>");
  pages.Texts[10] += '\0';
  EXPECT_EQ(Body("<zol_include pageid='9'/><zol_include pageid=\"10\"></zol_include>", pages),
            "<div class=\"zol-include\" data-zol-include=\"9\"><div class=\"header\">H</div></div>"
            "<div class=\"zol-include\" data-zol-include=\"10\"><p>whole</p></div>");
}

TEST(ZolRender, IncludesNest) {
  ReceivedPages pages;
  pages.Texts[10] = Page("<div>T<zol_include pageid='11'/></div>");
  pages.Texts[11] = Page("<p>S</p>");
  EXPECT_EQ(Body("<zol_include pageid='10'/>", pages),
            "<div class=\"zol-include\" data-zol-include=\"10\"><div>T"
            "<div class=\"zol-include\" data-zol-include=\"11\"><p>S</p></div></div></div>");
}

TEST(ZolRender, IncludeOfAPageNotReceivedIsAnEmptyDiv) {
  EXPECT_EQ(Body("<zol_include pageid='12'/>"), "<div class=\"zol-include\" data-zol-include=\"12\"></div>");
  EXPECT_EQ(RenderZolPage(Page("<zol_include pageid='12'/>"), nullptr).Body,
            "<div class=\"zol-include\" data-zol-include=\"12\"></div>");
  EXPECT_EQ(Body("<zol_include pageid='x1'/><zol_include file=\"a.zol\"/>"),
            "<!-- include without a page number left out --><!-- include without a page number left out -->");
}

TEST(ZolRender, IncludeCycleEndsInAComment) {
  ReceivedPages pages;
  pages.Texts[9] = Page("A<zol_include pageid='10'/>");
  pages.Texts[10] = Page("B<zol_include pageid='9'/>");
  EXPECT_EQ(Body("<zol_include pageid='9'/>", pages),
            "<div class=\"zol-include\" data-zol-include=\"9\">A"
            "<div class=\"zol-include\" data-zol-include=\"10\">B"
            "<!-- include of page 9 left out: it includes itself --></div></div>");
  pages.Texts[11] = Page("C<zol_include pageid='11'/>");
  EXPECT_EQ(Body("<zol_include pageid='11'/>", pages),
            "<div class=\"zol-include\" data-zol-include=\"11\">C"
            "<!-- include of page 11 left out: it includes itself --></div>");
}

TEST(ZolRender, IncludesNestedTooDeepEndInAComment) {
  ReceivedPages pages;
  for (unsigned number = 1; number <= 20; ++number) {
    pages.Texts[number] = Page(std::to_string(number) + "<zol_include pageid='" + std::to_string(number + 1) + "'/>");
  }
  std::string expected;
  for (unsigned number = 1; number <= zolclient::kMaxZolIncludeDepth; ++number) {
    expected += "<div class=\"zol-include\" data-zol-include=\"" + std::to_string(number) + "\">";
    expected += std::to_string(number);
  }
  expected += "<!-- include of page 9 left out: includes nest deeper than 8 -->";
  for (unsigned number = 1; number <= zolclient::kMaxZolIncludeDepth; ++number) expected += "</div>";
  EXPECT_EQ(Body("<zol_include pageid='1'/>", pages), expected);
}

TEST(ZolRender, IncludedPageThatIsNotWellFormedShowsAsText) {
  ReceivedPages pages;
  pages.Texts[9] = Page("<p><b>x</p>");
  const std::string body = Body("<zol_include pageid='9'/>", pages);
  EXPECT_EQ(body.find("<div class=\"zol-include\" data-zol-include=\"9\">" + kNoteStart), 0u) << body;
  EXPECT_EQ(Occurrences(body, "<b>"), 0u);
}

TEST(ZolRender, ErrorBecomesACommentThatCannotEndEarly) {
  EXPECT_EQ(Body("<p>a<zol_error>Failed -- to --> import <b>x</b> &lt;!--</zol_error>b</p>"),
            "<p>a<!-- zol_error: Failed &#45;&#45; to &#45;&#45;&gt; import x &lt;!&#45;&#45; -->b</p>");
}

TEST(ZolRender, UnknownZolElementsKeepTheirContent) {
  EXPECT_EQ(Body("<zol_future a=\"1\"><p>kept</p></zol_future><zol_rh type=\"no\">N</zol_rh><x:y>z</x:y>"),
            "<p>kept</p>Nz");
}

TEST(ZolRender, EntitiesStayEntities) {
  EXPECT_EQ(Body("<p>&lt;b&gt; &amp;amp; &amp; &#65;&#x42; &nbsp;&eacute; &bogus x &lt &quot;&apos;</p>"),
            "<p>&lt;b&gt; &amp;amp; &amp; AB &nbsp;&eacute; &amp;bogus x &amp;lt \"'</p>");
  EXPECT_EQ(Body("<p><![CDATA[<b>&amp;]]></p>"), "<p>&lt;b&gt;&amp;amp;</p>");
  // In an attribute only the references of XML are read; others are text.
  EXPECT_EQ(Body("<p title=\"&lt;&amp;&#65;&nbsp;\">x</p>"), "<p title=\"&lt;&amp;A&amp;nbsp;\">x</p>");
}

TEST(ZolRender, ScriptsEventHandlersAndScriptUrlsAreLeftOut) {
  EXPECT_EQ(Body("<script>alert(1)</script><SCRIPT type=\"x\"><p>in</p></SCRIPT>"
                 "<p onclick=\"x()\" ONMOUSEOVER='y' class=\"c\">t</p>"
                 "<a href=\" JavaScript:alert(1)\">a</a><a href=\"java&#x09;script:x\">b</a>"
                 "<a href=\"jav&#10;ascript&#58;x\">c</a><img src=\"VBScript:x\"/>"
                 "<form action=\"javascript:x\"><button formaction=\"javascript:y\">go</button></form>"
                 "<a href=\"javascript&colon;x\">d</a>"
                 "<iframe srcdoc=\"&lt;script&gt;\"></iframe><object data=\"x\"></object><base href=\"http://x/\"/>"
                 "<svg><set attributeName=\"href\" to=\"javascript:x\"/><a xlink:href=\"javascript:x\">e</a></svg>"
                 "<a href=\"results/current.html\">ok</a>"),
            "<p class=\"c\">t</p><a>a</a><a>b</a><a>c</a><img><form><button>go</button></form>"
            "<a href=\"javascript&amp;colon;x\">d</a><svg><a>e</a></svg><a href=\"results/current.html\">ok</a>");
  EXPECT_EQ(Body("<a href=\"javascript\">relative</a>"), "<a href=\"javascript\">relative</a>");
}

TEST(ZolRender, ElementAndAttributeNamesAreWrittenInLowerCase) {
  EXPECT_EQ(Body("<DIV Class=\"a\" data-X=\"1\" class=\"second\" a_b=\"dropped\">x</DIV>"),
            "<div class=\"a\" data-x=\"1\">x</div>");
}

TEST(ZolRender, RefreshIsTheRootsAttributeWithinBounds) {
  const auto refresh = [](const std::string& attribute) {
    return Render("<zol " + attribute + "><p/></zol>").RefreshSeconds;
  };
  EXPECT_EQ(refresh("refresh=\"5\""), 5u);
  EXPECT_EQ(refresh("version=\"1\"  refresh=\"10\" "), 10u);
  EXPECT_EQ(refresh(" refresh=' 7 '"), 7u);
  EXPECT_EQ(refresh(""), 0u);
  EXPECT_EQ(refresh("refresh=\"\""), 0u);
  EXPECT_EQ(refresh("refresh=\"abc\""), 0u);
  EXPECT_EQ(refresh("refresh=\"-3\""), 0u);
  EXPECT_EQ(refresh("refresh=\"5s\""), 0u);
  EXPECT_EQ(refresh("refresh=\"0\""), 0u);
  EXPECT_EQ(refresh("refresh=\"1\""), 1u);
  EXPECT_EQ(refresh("refresh=\"3600\""), 3600u);
  EXPECT_EQ(refresh("refresh=\"3601\""), 3600u);
  EXPECT_EQ(refresh("refresh=\"99999999999999999999\""), 3600u);
}

TEST(ZolRender, PageThatIsNotWellFormedIsShownAsEscapedTextWithANote) {
  std::string text = "<zol><p><b>x</p></b></zol>";
  text += '\0';
  const RenderedZolPage page = Render(text);
  EXPECT_EQ(page.Body,
            "<p class=\"zol-note\">This page is not well-formed (end tag &lt;/p&gt; does not match &lt;b&gt;); it is "
            "shown as text.</p><pre class=\"zol-source\">&lt;zol&gt;&lt;p&gt;&lt;b&gt;x&lt;/p&gt;&lt;/b&gt;&lt;/zol&gt;"
            "</pre>");
  ExpectShownAsText(page);
  EXPECT_EQ(page.RefreshSeconds, 0u);
}

TEST(ZolRender, EveryKindOfBadMarkupIsShownAsText) {
  const char* const bad[] = {
      "<zol><p a=b>x</p></zol>",                       // value without quotes
      "<zol><p a=\"1\"b=\"2\">x</p></zol>",            // attributes not apart
      "<zol><p a=\"1>x</p></zol>",                     // value not closed
      "<zol><p =\"1\">x</p></zol>",                    // no attribute name
      "<zol><p>x</zol>",                               // element not ended
      "<zol><p>x</p>",                                 // root not ended
      "<html><body><script>alert(1)</script></body></html>",  // no zol root
      "",                                              // nothing
      "text<zol></zol>",                               // text before the root
      "<zol><p>x</P></zol>",                           // end tag in another case
      "<zol><p>x</p foo></zol>",                       // bad end tag
      "<zol></p></zol>",                               // end tag without start
      "<zol><p <img src=x onerror=alert(1)>>x</p></zol>",
      "<zol><!-- open comment </zol>",
      "<zol><<script>>alert(1)</zol>",
  };
  for (const char* text : bad) {
    const RenderedZolPage page = Render(text);
    SCOPED_TRACE(text);
    ExpectShownAsText(page);
  }
}

TEST(ZolRender, BlanksInAnEndTagAreFine) {
  EXPECT_EQ(Render("<zol><p>x</p ></zol >").Body, "<p>x</p>");
}

TEST(ZolRender, VoidElementsNeedNoEndTagAndOthersAreAlwaysClosed) {
  const RenderedZolPage page = Render(Page("<p>a<br>b<br/>c<br></br></p><img src=\"x.png\"><hr></hr><div/><td/>"));
  EXPECT_TRUE(page.WellFormed);
  EXPECT_EQ(page.Body, "<p>a<br>b<br>c<br></p><img src=\"x.png\"><hr><div></div><td></td>");
}

TEST(ZolRender, AttributeValueWithQuotesIsEscaped) {
  EXPECT_EQ(Body("<p title='say \"hi\" &amp; go' lang=\"a'b\" data-x=\"&lt;/p&gt;&quot;\">x</p>"),
            "<p title=\"say &quot;hi&quot; &amp; go\" lang=\"a'b\" data-x=\"&lt;/p&gt;&quot;\">x</p>");
}

TEST(ZolRender, StyleSheetCannotEndItsElement) {
  EXPECT_EQ(Body("<style>a > b { content: \"&lt;/style&gt;&amp;\" }<i>x</i></style>"),
            "<style>a > b { content: \"\\3c /style>&\" }</style>");
}

TEST(ZolRender, NestingIsBoundedTo256ElementsWithTheRoot) {
  const auto nested = [](int depth) {
    std::string text = "<zol>";
    for (int i = 0; i < depth; ++i) text += "<b>";
    text += "x";
    for (int i = 0; i < depth; ++i) text += "</b>";
    return text + "</zol>";
  };
  const RenderedZolPage deepest = Render(nested(255));
  EXPECT_TRUE(deepest.WellFormed);
  EXPECT_EQ(Occurrences(deepest.Body, "<b>"), 255u);
  const RenderedZolPage tooDeep = Render(nested(256));
  ExpectShownAsText(tooDeep);
  EXPECT_NE(tooDeep.Body.find("(elements nested more than 256 deep)"), std::string::npos);
}

TEST(ZolRender, NestingAcrossIncludedPagesStopsAtTwoHundredFiftySixElements) {
  const auto nested = [](const std::string& inside) {
    std::string text = "<zol>";
    for (int i = 0; i < 200; ++i) text += "<b>";
    text += inside;
    for (int i = 0; i < 200; ++i) text += "</b>";
    return text + "</zol>";
  };
  ReceivedPages pages;
  for (unsigned number = 1; number <= 9; ++number) {
    pages.Texts[number] = nested("<zol_include pageid='" + std::to_string(number + 1) + "'/>");
  }
  const RenderedZolPage page = Render(nested("<zol_include pageid='1'/>"), pages);
  EXPECT_TRUE(page.WellFormed);
  // A page counts its 200 elements and its include: the outer page and 55 of the next
  // fill the 256, and the 56th element of the included page is one comment in place of
  // all that lies deeper.
  EXPECT_EQ(Occurrences(page.Body, "<b>"), 255u);
  EXPECT_EQ(Occurrences(page.Body, "</b>"), 255u);
  EXPECT_EQ(Occurrences(page.Body, "class=\"zol-include\""), 1u);
  EXPECT_EQ(Occurrences(page.Body, "elements nest deeper than 256 with the included pages"), 1u);
  EXPECT_EQ(Occurrences(page.Body, "includes nest deeper than 8"), 0u);
}

TEST(ZolRender, LongPageIsCutAtTheBudgetWithAComment) {
  const std::string text = Page("<p>" + std::string(17 * 1024 * 1024, 'x') + "</p><p>after</p>");
  const RenderedZolPage page = Render(text);
  EXPECT_TRUE(page.WellFormed);
  EXPECT_EQ(page.Body, "<p><!-- the rest is left out: the page would be longer than 16777216 bytes --></p>");
}

TEST(ZolRender, IncludesThatMultiplyAreCutAtTheBudget) {
  // Each page includes the next 64 times: 64^8 copies if nothing held them.
  ReceivedPages pages;
  for (unsigned number = 1; number <= 9; ++number) {
    std::string content = "<p>" + std::string(1000, 'a' + static_cast<char>(number)) + "</p>";
    for (int i = 0; i < 64; ++i) content += "<zol_include pageid='" + std::to_string(number + 1) + "'/>";
    pages.Texts[number] = Page(content);
  }
  const auto start = std::chrono::steady_clock::now();
  const std::string body = Body("<zol_include pageid='1'/>", pages);
  const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_LT(seconds, 30.0);
  EXPECT_LE(body.size(), 16u * 1024 * 1024 + 4096);
  EXPECT_GT(body.size(), 15u * 1024 * 1024);
  EXPECT_EQ(Occurrences(body, "<!-- the rest is left out: the page would be longer than 16777216 bytes -->"), 1u);
  EXPECT_EQ(Occurrences(body, "<div"), Occurrences(body, "</div>"));
}

TEST(ZolRender, WebNameFollowsTheServersMapping) {
  EXPECT_EQ(PageWebName("results/", "current.zol"), "results/current.html");
  EXPECT_EQ(PageWebName("", "index.zol"), "index.html");
  EXPECT_EQ(PageWebName("flash/", "ZOLFeed.zol"), "flash/ZOLFeed.xml");
  EXPECT_EQ(PageWebName("images/", "flag.gif"), "images/flag.gif");
  EXPECT_EQ(PageWebName("", "README"), "README");
  EXPECT_EQ(PageWebName("a\\b\\", "c.zol"), "a/b/c.html");
  EXPECT_EQ(PageWebName("x/", "v.ZOL"), "x/v.ZOL");
  EXPECT_EQ(PageWebName("x/", "archive.zol.gz"), "x/archive.zol.gz");
  EXPECT_EQ(PageWebName("x/", "two.dots.zol"), "x/two.dots.html");
  // The same names as the server's own pages give them.
  const std::pair<const char*, const char*> names[] = {
      {"results/", "current.zol"}, {"", "index.zol"},   {"flash/", "ZOLFeed.zol"}, {"data", "ZOLFeed.zol"},
      {"images/", "flag.gif"},     {"", "README"},      {"a\\b\\", "c.zol"},       {"x/", "v.ZOL"},
      {"x/", "two.dots.zol"},      {"", ".zol"},        {"p/", "feed.ZOLFeed.zol"}, {"", "style.css"}};
  for (const auto& [path, name] : names) {
    const COutputPage page(1, 20, 0, 10, path, name);
    EXPECT_EQ(PageWebName(path, name), COutputPage::ReplaceAll(page.GetExportName(), "\\", "/")) << path << name;
  }
}

TEST(ZolRender, ExampleResultsPageAsTheServerWritesIt) {
  constexpr DWORD kPracticeRun = 0x40000001;
  PackageScope scope;
  CLiveData data;
  data.AddRun(kPracticeRun, 0, true);
  CZOLServerPage page(1, 2, 1, 20, "results/", "current.zol");
  ASSERT_EQ(page.Initialize(&data.link.comm, static_cast<int>(kLiveEventID), "", static_cast<int>(kPracticeRun),
                            ReadSourceFile("examples/site/results/current.zol")),
            TRUE);
  CRMView* results = data.View("lgView_Results");
  ASSERT_NE(results, nullptr);
  const std::vector<CColumn> columns{
      MakeColumn(kColumnInteger, "lgHeader_Pos", "Pos"),      MakeColumn(kColumnString, "lgHeader_No", "No"),
      MakeColumn(kColumnString, "lgHeader_Name", "Name"),     MakeColumn(kColumnString, "lgHeader_BestTm", "Best"),
      MakeColumn(kColumnInteger, "lgHeader_In_Lap", "In"),    MakeColumn(kColumnString, "lgHeader_LastTm", "Last"),
      MakeColumn(kColumnInteger, "lgHeader_Laps", "Laps")};
  const auto row = [](DWORD id, int position, const char* number, const char* name, int laps) {
    return MakeRowValues(id, {IntegerValue(position), TextValue(number), TextValue(name), TextValue("1:35.849"),
                              IntegerValue(1), TextValue("1:37.501"), IntegerValue(laps)});
  };
  data.Serve(results, columns,
             {row(1, 1, "3", "Lucja Zak", 3), row(2, 2, "7", "Ann <Berger> & Co", 3), row(3, 3, "12", "Emile", 2)});
  page.ZOLExport();
  const std::string wire = page.GetDataAsString();
  ASSERT_NE(wire.find("<zol_rr>"), std::string::npos) << wire;
  ASSERT_EQ(wire.back(), '\0');

  const RenderedZolPage rendered = RenderZolPage(wire, nullptr);
  ASSERT_TRUE(rendered.WellFormed) << rendered.Body;
  EXPECT_EQ(rendered.Title, "Results");
  EXPECT_EQ(rendered.HeadExtras,
            "<meta charset=\"utf-8\"><link rel=\"stylesheet\" type=\"text/css\" href=\"../style.css\">");
  EXPECT_EQ(rendered.RefreshSeconds, 5u);
  const std::string& body = rendered.Body;
  // The heads stand one per line on the wire; the text between them is no part of the row.
  const std::size_t headerAt = body.find("<tr><th class=\"position\">");
  ASSERT_NE(headerAt, std::string::npos) << body;
  const std::string headerRow = body.substr(headerAt, body.find("</tr>", headerAt) + 5 - headerAt);
  EXPECT_EQ(Occurrences(headerRow, "<th"), 7u) << headerRow;
  EXPECT_EQ(Occurrences(body, "<th class="), 7u);
  EXPECT_EQ(headerRow,
            "<tr><th class=\"position\">Pos</th><th class=\"no\">No</th><th class=\"name\">Name</th>"
            "<th class=\"besttime\">Best lap</th><th class=\"inlap\">In lap</th><th class=\"lasttime\">Last lap</th>"
            "<th class=\"laps\">Laps</th></tr>");
  EXPECT_NE(body.find("<tr><td>1</td><td>3</td><td>Lucja Zak</td>"), std::string::npos) << body;
  EXPECT_NE(body.find("<td>Ann &lt;Berger&gt; &amp; Co</td>"), std::string::npos) << body;
  EXPECT_NE(body.find("<tr class=\"zol-lapseparator\"><td>3</td><td>12</td><td>Emile</td>"), std::string::npos) << body;
  EXPECT_NE(body.find("<td class=\"zol-lapseparator\">2</td></tr>"), std::string::npos) << body;
  EXPECT_EQ(Occurrences(body, "<tr><td>") + Occurrences(body, "<tr class=\"zol-lapseparator\"><td>"), 3u);
  EXPECT_NE(body.find("<span class=\"zol-label zol-label-runname\">"), std::string::npos);
  // Labels without data show their source as text; no tag of the page is left.
  EXPECT_EQ(body.find("<zol"), std::string::npos);
  EXPECT_EQ(body.find("<zol"), std::string::npos);
}

TEST(ZolRender, ExampleIndexPageWithItsIncludesAsTheServerWritesThem) {
  PackageScope scope;
  CZOLServerSite site(1, nullptr);
  site.SetParameter("name", "demo");
  site.Build(std::string(ZOL_SOURCE_DIR) + "/examples/site/", -1, 1);
  ReceivedPages pages;
  for (const auto& [number, page] : site.GetPages()) {
    if (page->GetExtension() == "zol") pages.Texts[wire::PageNumber(page->GetPageKey())] = page->GetDataAsString();
  }
  const COutputPage* index = site.PageFind("", "index.zol");
  const COutputPage* header = site.PageFind("pages/", "header.zol");
  const COutputPage* track = site.PageFind("pages/", "track.zol");
  const COutputPage* summary = site.PageFind("results/", "summary.zol");
  ASSERT_NE(index, nullptr);
  ASSERT_NE(header, nullptr);
  ASSERT_NE(track, nullptr);
  ASSERT_NE(summary, nullptr);
  const auto div = [](const COutputPage* page) {
    return "<div class=\"zol-include\" data-zol-include=\"" + std::to_string(wire::PageNumber(page->GetPageKey())) +
           "\">";
  };

  const RenderedZolPage rendered = Render(index->GetDataAsString(), pages);
  ASSERT_TRUE(rendered.WellFormed) << rendered.Body;
  EXPECT_EQ(rendered.Title, "Live timing");
  EXPECT_EQ(rendered.HeadExtras, "<meta charset=\"utf-8\"><link rel=\"stylesheet\" type=\"text/css\" href=\"style.css\">");
  EXPECT_EQ(rendered.RefreshSeconds, 10u);
  const std::string& body = rendered.Body;
  EXPECT_EQ(body.find(div(header) + "\n\n<div class=\"header\">"), 1u) << body;
  EXPECT_NE(body.find(div(track) + "\n<div class=\"track\">"), std::string::npos) << body;
  EXPECT_NE(body.find(div(summary) + "\n<div class=\"summary\">"), std::string::npos) << body;
  EXPECT_LT(body.find(div(track)), body.find(div(summary)));
  EXPECT_NE(body.find("<span class=\"zol-label zol-label-eventname\">"), std::string::npos) << body;
  EXPECT_NE(body.find("<li><a href=\"results/current.html\">Results of the running session</a></li>"),
            std::string::npos);
  EXPECT_EQ(body.find("<zol"), std::string::npos);
  EXPECT_EQ(body.find("script"), std::string::npos);
  EXPECT_EQ(Occurrences(body, "<div"), Occurrences(body, "</div>"));
}
