#include "site/ZOLServerPage.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>

#include "distribution/PacketFormat.h"
#include "frame/Parameters.h"
#include "site/ElementEndScan.h"
#include "site/ZOLServerInclude.h"
#include "testing/TempDir.h"

namespace {

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";

class CountingObserver : public COutputPageObserver {
 public:
  void OnPageUpdated(COutputPage* page) override {
    (void)page;
    ++Updates;
  }
  int Updates = 0;
};

// A template page of site 1, number 20, level 2, repeat 5, read from `content`.
struct TemplatePage {
  explicit TemplatePage(const std::string& content, const std::string& path = "sub/")
      : Page(1, 20, 2, 5, path, "page.zol") {
    EXPECT_EQ(Page.Initialize(nullptr, 3, "", -1, content), TRUE);
  }
  std::string Wire() {
    Page.ZOLExport();
    return Page.GetDataAsString();
  }
  CZOLServerPage Page;
};

// The wire text without the trailing zero byte, which is checked separately.
std::string WithoutZero(const std::vector<BYTE>& data) {
  EXPECT_FALSE(data.empty());
  EXPECT_EQ(data.back(), 0);
  return std::string(data.begin(), data.end() - 1);
}

}  // namespace

TEST(ElementEndScan, SelfClosingTagEndsBehindItsBracket) {
  EXPECT_EQ(FindElementEnd("<zol_include file='a'/>tail"), 23u);
}

TEST(ElementEndScan, NestedTagsAreCountedToTheMatchingEndTag) {
  const std::string element = "<zol_table><tr><td>x</td></tr></zol_table>";
  EXPECT_EQ(FindElementEnd(element + "<p>after</p>"), element.size());
}

TEST(ElementEndScan, BracketAloneNeverClosesAndUnclosedGivesNpos) {
  EXPECT_EQ(FindElementEnd("<zol_table type='x'><p>text"), std::string::npos);
  EXPECT_EQ(FindElementEnd("<a>"), std::string::npos);
}

TEST(ElementEndScan, SlashBeforeBracketClosesEvenInsideAnOpenTag) {
  // The <br/> closes itself, then the outer closing tag ends the element.
  EXPECT_EQ(FindElementEnd("<x><br/></x>!"), 12u);
  // An unclosed HTML tag inside throws the count off.
  EXPECT_EQ(FindElementEnd("<x><br></x>"), std::string::npos);
}

TEST(ZOLServerPage, ExportWritesDeclarationRootWithDoubleBlanksAndAClosingZeroByte) {
  TemplatePage page("<zol version=\"1\" id=\"7\"><p>Hi</p></zol>");
  page.Page.ZOLExport();
  const std::vector<BYTE>& data = page.Page.GetData();
  EXPECT_EQ(WithoutZero(data),
            std::string(kDeclaration) + "<zol version=\"1\"  id=\"7\"  refresh=\"10\" ><p>Hi</p></zol>");
}

TEST(ZOLServerPage, ExportWritesEveryRootAttributeInOrder) {
  TemplatePage page("<zol pagetype=\"d\" type=\"c\" id=\"b\" version=\"a\" refresh=\"3\"></zol>");
  page.Page.ZOLExport();
  EXPECT_EQ(WithoutZero(page.Page.GetData()),
            std::string(kDeclaration) +
                "<zol version=\"a\"  id=\"b\"  type=\"c\"  pagetype=\"d\"  refresh=\"3\" ></zol>");
}

TEST(ZOLServerPage, RefreshOfOneKeepsTheDefaultTen) {
  TemplatePage page("<zol refresh=\"1\"></zol>");
  EXPECT_EQ(page.Page.GetRefresh(), 10u);
  TemplatePage taken("<zol refresh=\"2\"></zol>");
  EXPECT_EQ(taken.Page.GetRefresh(), 2u);
}

TEST(ZOLServerPage, RepeatOfTwoKeepsTheValueTheSiteGave) {
  TemplatePage page("<zol repeat=\"2\"></zol>");
  EXPECT_EQ(page.Page.GetRepeat(), 5u);
  TemplatePage taken("<zol repeat=\"3\"></zol>");
  EXPECT_EQ(taken.Page.GetRepeat(), 3u);
}

TEST(ZOLServerPage, RepeatAndLevelAreNotExported) {
  TemplatePage page("<zol repeat=\"9\" level=\"3\"></zol>");
  EXPECT_EQ(page.Wire().find("repeat"), std::string::npos);
  EXPECT_EQ(page.Wire().find("level"), std::string::npos);
}

TEST(ZOLServerPage, LevelOfFourOrZeroKeepsTheLevel) {
  TemplatePage four("<zol level=\"4\"></zol>");
  EXPECT_EQ(wire::PageLevel(four.Page.GetPageKey()), 2u);
  TemplatePage zero("<zol level=\"0\"></zol>");
  EXPECT_EQ(wire::PageLevel(zero.Page.GetPageKey()), 2u);
  TemplatePage three("<zol level=\"3\"></zol>");
  EXPECT_EQ(three.Page.GetPageKey(), wire::MakePageKey(1, 20, 3));
}

TEST(ZOLServerPage, DeclarationOfTheTemplateAppearsAgainInsideTheRootElement) {
  TemplatePage page("<?xml version=\"1.0\"?>\n<zol version=\"2\"><h1>Results</h1></zol>");
  EXPECT_EQ(WithoutZero((page.Page.ZOLExport(), page.Page.GetData())),
            std::string(kDeclaration) + "<zol version=\"2\"  refresh=\"10\" ><?xml version=\"1.0\"?>\n<h1>Results</h1></zol>");
}

TEST(ZOLServerPage, TextBehindTheRootEndTagIsDropped) {
  TemplatePage page("<zol><p>in</p></zol>\n<!-- out -->\n");
  const std::vector<std::string> chunks{"", "<p>in</p>"};
  EXPECT_EQ(page.Page.GetChunks(), chunks);
}

// The template is well-formed, but the comment inside the tag opens a level that no
// "/>" closes, so the counting scan finds no end of the zol_ element.
TEST(ZOLServerPage, UnclosedZolTableAppendsTheRestAsLiteralTextAndEndsTheImport) {
  const std::string rest = "<zol_table type=\"results\"><!-- note --></zol_table><zol_include file=\"x.zol\"/><p>b</p>";
  TemplatePage page("<zol><p>a</p>" + rest + "</zol>");
  const std::vector<std::string> chunks{"", "<p>a</p>", rest};
  EXPECT_EQ(page.Page.GetChunks(), chunks);
  // The include behind the unclosed tag was never imported.
  EXPECT_TRUE(page.Page.GetIncludes().empty());
  EXPECT_TRUE(page.Page.GetLinks().empty());
  EXPECT_NE(page.Wire().find(rest + "</zol>"), std::string::npos);
}

TEST(ZOLServerPage, UnclosedIncludeTagMakesTheRestLiteralText) {
  const std::string rest = "<zol_include file=\"x.zol\"><![CDATA[x]]></zol_include><p>rest</p>";
  TemplatePage page("<zol>" + rest + "</zol>");
  const std::vector<std::string> chunks{"", "", rest};
  EXPECT_EQ(page.Page.GetChunks(), chunks);
  EXPECT_TRUE(page.Page.GetIncludes().empty());
}

TEST(ZOLServerPage, TagWithoutHandlerStaysInThePageAsLiteralText) {
  const std::string tag = "<zol_unknown a=\"1\"><b>x</b></zol_unknown>";
  TemplatePage page("<zol>" + tag + "</zol>");
  EXPECT_NE(page.Wire().find(tag), std::string::npos);
}

TEST(ZOLServerPage, TemplateThatIsNotWellFormedGivesAPageWithEmptyData) {
  TemplatePage page("<zol><p>open</zol>");
  EXPECT_TRUE(page.Page.GetChunks().empty());
  page.Page.ZOLExport();
  EXPECT_TRUE(page.Page.GetData().empty());
}

TEST(ZOLServerPage, RootThatIsNotZolGivesAPresentPageWithZeroLengthData) {
  TemplatePage page("<html><p>x</p></html>");
  page.Page.ZOLExport();
  EXPECT_EQ(page.Page.GetData().size(), 0u);
  EXPECT_EQ(page.Page.HTMLExport(CParameters()), "");
  EXPECT_EQ(page.Page.GetFilename(), "page.zol");
}

TEST(ZOLServerPage, IncludeThatFindsNoPageExportsNothingAndShowsTheFailureInTheBrowser) {
  TemplatePage page("<zol><p>a</p><zol_include path=\"../other/\" file=\"x.zol\"/><p>b</p></zol>");
  EXPECT_EQ(WithoutZero((page.Page.ZOLExport(), page.Page.GetData())),
            std::string(kDeclaration) + "<zol refresh=\"10\" ><p>a</p><p>b</p></zol>");
  EXPECT_EQ(page.Page.HTMLExport(CParameters()), "<p>a</p>Failed to include page (../other/x.zol).<p>b</p>");
}

TEST(ZOLServerPage, IncludeWithATargetSendsTheTargetsPageNumberAndExpandsForTheBrowser) {
  TemplatePage target("<zol><i>target</i></zol>");
  TemplatePage page("<zol><zol_include file=\"t.zol\"/></zol>");
  ASSERT_EQ(page.Page.GetIncludes().size(), 1u);
  page.Page.GetIncludes().begin()->second->SetTarget(&target.Page);
  EXPECT_NE(page.Wire().find("><zol_include pageid='20'/></zol>"), std::string::npos);
  EXPECT_EQ(page.Page.HTMLExport(CParameters()), "<i>target</i>");
}

TEST(ZOLServerPage, IncludeWithoutFileIsReplacedByTheErrorText) {
  TemplatePage page("<zol><zol_include path=\"a/\"/></zol>");
  EXPECT_TRUE(page.Page.GetIncludes().empty());
  EXPECT_NE(page.Wire().find("<zol_error>Failed to import include.</zol_error>"), std::string::npos);
}

TEST(ZOLServerPage, LinksGoToTheBackOfTheQueueWithThePagesPathInOrder) {
  TemplatePage page("<zol><zol_include path=\"a/\" file=\"1.zol\"/><div><zol_include file=\"2.zol\"/></div></zol>",
                    "sub/");
  std::deque<std::string> queue{"first"};
  page.Page.AddLinksToQueue(queue);
  const std::deque<std::string> expected{"first", "sub/|a/|1.zol", "sub/||2.zol"};
  EXPECT_EQ(queue, expected);
}

TEST(ZOLServerPage, InitializeAgainClearsIncludesAndRenumbersThem) {
  TemplatePage page("<zol><zol_include file=\"1.zol\"/><zol_include file=\"2.zol\"/></zol>");
  const std::vector<std::string> chunks{"", "", "#INCLUDE#0", "", "#INCLUDE#1", ""};
  EXPECT_EQ(page.Page.GetChunks(), chunks);
  ASSERT_EQ(page.Page.Initialize(nullptr, 3, "", -1, "<zol><zol_include file=\"3.zol\"/></zol>"), TRUE);
  ASSERT_EQ(page.Page.GetIncludes().size(), 1u);
  EXPECT_EQ(page.Page.GetIncludes().begin()->first, 0);
  EXPECT_EQ(page.Page.GetLinks(), std::vector<std::string>{"|3.zol"});
}

TEST(ZOLServerPage, InitializeReadsTheFileUnderTheRoot) {
  TempDir folder;
  folder.Write("sub/page.zol", "<zol id=\"f\"><p>file</p></zol>");
  CZOLServerPage page(1, 20, 2, 5, "sub/", "page.zol");
  ASSERT_EQ(page.Initialize(nullptr, 3, folder.Path() + "/", -1, ""), TRUE);
  EXPECT_EQ(page.GetPageIdText(), "f");
  EXPECT_EQ(page.HTMLExport(CParameters()), "<p>file</p>");
}

TEST(ZOLServerPage, InitializeOfAMissingFileFailsAndMarksNoInitialVersion) {
  TempDir folder;
  CZOLServerPage page(1, 20, 2, 5, "sub/", "missing.zol");
  EXPECT_EQ(page.Initialize(nullptr, 3, folder.Path() + "/", -1, ""), FALSE);
  EXPECT_EQ(page.GetInitialVersion(), FALSE);
}

TEST(ZOLServerPage, CheckWaitingWithNothingWaitingMakesThePageDueAndNotifies) {
  TemplatePage page("<zol><p>x</p></zol>");
  CountingObserver observer;
  observer.Attach(&page.Page);
  EXPECT_TRUE(page.Page.GetData().empty());
  EXPECT_FALSE(page.Page.ExportIfDue());
  page.Page.CheckWaiting();
  EXPECT_EQ(observer.Updates, 1);
  EXPECT_TRUE(page.Page.IsExportDue());
  // The export waits for the site's tick.
  EXPECT_TRUE(page.Page.GetData().empty());
  EXPECT_TRUE(page.Page.ExportIfDue());
  EXPECT_NE(page.Page.GetDataAsString().find("<p>x</p>"), std::string::npos);
  EXPECT_FALSE(page.Page.IsExportDue());
  EXPECT_FALSE(page.Page.ExportIfDue());
}

TEST(ZOLServerPage, FileChangeOfATemplateOnlyStoresTheFlag) {
  TemplatePage page("<zol><p>x</p></zol>");
  CountingObserver observer;
  observer.Attach(&page.Page);
  ASSERT_NE(page.Page.GetIsTemplate(), 0u);
  page.Page.SetFileChanged(1);
  EXPECT_EQ(page.Page.GetFileChanged(), 1u);
  EXPECT_EQ(observer.Updates, 0);
  EXPECT_TRUE(page.Page.GetPackets().empty());
}

TEST(ZOLServerPage, FileChangeOfAPlainPageReloadsRebuildsAndNotifies) {
  TempDir folder;
  folder.Write("sub/style.css", "old");
  CZOLServerPage page(1, 20, 2, 5, "sub/", "style.css");
  ASSERT_EQ(page.GetIsTemplate(), 0u);
  ASSERT_EQ(page.FileImport(folder.Path() + "/"), TRUE);
  CountingObserver observer;
  observer.Attach(&page);
  folder.Write("sub/style.css", "new text");
  page.SetFileChanged(1);
  EXPECT_EQ(page.GetDataAsString(), "new text");
  EXPECT_FALSE(page.GetPackets().empty());
  EXPECT_EQ(observer.Updates, 1);
}

TEST(ZOLServerPage, TagNameEndsAtALineBreakAsAtABlank) {
  TemplatePage page("<zol><zol_include\nfile=\"x.zol\"/></zol>");
  EXPECT_EQ(page.Page.GetIncludes().size(), 1u);
  EXPECT_EQ(page.Page.GetLinks(), std::vector<std::string>{"|x.zol"});
}

TEST(ZOLServerPage, LiteralTextHoldingAMarkerWordIsTakenForAMarkerWithoutObject) {
  TemplatePage page("<zol><p>#INCLUDE#0</p><zol_include file=\"x.zol\"/></zol>");
  ASSERT_EQ(page.Page.GetIncludes().size(), 1u);
  // The chunk "<p>#INCLUDE#0</p>" doesn't start with the marker, so nothing is written for it.
  EXPECT_EQ(page.Page.HTMLExport(CParameters()), "Failed to include page (x.zol).");
  EXPECT_EQ(page.Wire().find("<p>"), std::string::npos);
}
