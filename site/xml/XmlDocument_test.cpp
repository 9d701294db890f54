#include "site/xml/XmlDocument.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string ErrorOf(const std::string& text) {
  CXmlDocument doc;
  doc.Parse(text);
  return doc.GetError();
}

}  // namespace

// --- parse errors, with their exact texts and offsets ---

TEST(XmlParse, EmptyStringGivesEmptyDocument) {
  CXmlDocument doc;
  EXPECT_FALSE(doc.Parse(std::string()));
  EXPECT_EQ(doc.GetError(), "Empty document");
  EXPECT_FALSE(doc.FindElement());
}

TEST(XmlParse, OnlyACommentGivesRootElementNotFound) {
  CXmlDocument doc;
  EXPECT_FALSE(doc.Parse("<!-- nothing here -->"));
  EXPECT_EQ(doc.GetError(), "Root element not found");
}

TEST(XmlParse, MismatchedEndTagNamesBothOffsets) {
  CXmlDocument doc;
  EXPECT_FALSE(doc.Parse("<a><b></a>"));
  EXPECT_EQ(doc.GetError(), "End tag 'a' at offset 7 does not match start tag 'b' at offset 3");
}

TEST(XmlParse, SecondTopLevelElementIsSiblingToRoot) {
  CXmlDocument doc;
  EXPECT_FALSE(doc.Parse("<a/><b/>"));
  EXPECT_EQ(doc.GetError(), "Element 'b' at offset 4 is sibling to root");
}

TEST(XmlParse, UnclosedRootIsNotEnded) {
  CXmlDocument doc;
  EXPECT_FALSE(doc.Parse("<a>"));
  EXPECT_EQ(doc.GetError(), "Element 'a' at offset 0 not ended");
}

TEST(XmlParse, InnermostOpenElementIsTheOneNotEnded) {
  EXPECT_EQ(ErrorOf("<a><bb>"), "Element 'bb' at offset 3 not ended");
}

TEST(XmlParse, EndTagWithoutStartTag) {
  EXPECT_EQ(ErrorOf("</x>"), "No start tag for end tag 'x' at offset 1");
  EXPECT_EQ(ErrorOf("<a/></x>"), "No start tag for end tag 'x' at offset 5");
}

TEST(XmlParse, SingleDashCommentIsIncorrectCommentTag) {
  EXPECT_EQ(ErrorOf("<a><!-x></a>"),
            "Incorrect comment tag at offset 6, Element 'a' at offset 0 not ended");
}

TEST(XmlParse, UnknownBangTagIsIncorrect) {
  EXPECT_EQ(ErrorOf("<!x<a/>"), "Incorrect ! tag at offset 2, Root element not found");
}

TEST(XmlParse, BlankAfterLessThanIsIncorrectTagNameCharacter) {
  EXPECT_EQ(ErrorOf("<a>< b/></a>"),
            "Incorrect tag name character at offset 4, Element 'a' at offset 0 not ended");
  EXPECT_EQ(ErrorOf("<1/>"), "Incorrect tag name character at offset 1, Root element not found");
}

TEST(XmlParse, UnterminatedTokensNameTheirKind) {
  EXPECT_EQ(ErrorOf("<a x='1'"), "Element tag at offset 0 unterminated, Root element not found");
  EXPECT_EQ(ErrorOf("<a></a"),
            "Element end tag at offset 3 unterminated, Element 'a' at offset 0 not ended");
  EXPECT_EQ(ErrorOf("<a><![CDATA[x"),
            "CDATA Section at offset 3 unterminated, Element 'a' at offset 0 not ended");
  EXPECT_EQ(ErrorOf("<?xml version='1.0'"),
            "Processing instruction at offset 0 unterminated, Root element not found");
  EXPECT_EQ(ErrorOf("<!-- open"), "Comment at offset 0 unterminated, Root element not found");
  EXPECT_EQ(ErrorOf("<!DOCTYPE a [ <!ENTITY x '>'"),
            "Doctype at offset 0 unterminated, Root element not found");
}

TEST(XmlParse, LessThanAtTheEndIsUnterminatedTag) {
  EXPECT_EQ(ErrorOf("<a><"), "tag at offset 3 unterminated, Element 'a' at offset 0 not ended");
  EXPECT_EQ(ErrorOf("<a><!"), "tag at offset 3 unterminated, Element 'a' at offset 0 not ended");
}

TEST(XmlParse, QuotedValueKeepsTagOpenAtTheEnd) {
  EXPECT_EQ(ErrorOf("<a x='>"), "Element tag at offset 0 unterminated, Root element not found");
}

TEST(XmlParse, EndTagTooLongForItsFieldIsRefused) {
  const std::string name(1100, 'n');
  EXPECT_EQ(ErrorOf("<" + name + "></" + name + ">"),
            "Element '" + name + "' at offset 1103 too long");
}

TEST(XmlParse, FailedDocumentKeepsTextAndErrorButHasNoElements) {
  CXmlDocument doc;
  EXPECT_FALSE(doc.Parse("<a><b></a>"));
  EXPECT_EQ(doc.GetDocument(), "<a><b></a>");
  EXPECT_EQ(doc.GetElementCount(), 0u);
  EXPECT_FALSE(doc.FindElement());
  EXPECT_FALSE(doc.FindChildElement());
  EXPECT_EQ(doc.GetAttribute("x"), "");
  EXPECT_EQ(doc.GetTagName(), "");
}

TEST(XmlParse, ScanErrorBehindACompleteRootKeepsTheRoot) {
  CXmlDocument doc;
  EXPECT_TRUE(doc.Parse("<a/><!x"));
  EXPECT_EQ(doc.GetError(), "Incorrect ! tag at offset 6");
  EXPECT_TRUE(doc.FindElement("a"));
}

TEST(XmlParse, ReparseClearsTheError) {
  CXmlDocument doc;
  EXPECT_FALSE(doc.Parse("<a>"));
  EXPECT_TRUE(doc.Parse("<a/>"));
  EXPECT_EQ(doc.GetError(), "");
}

TEST(XmlParse, ConstructorParsesTheGivenText) {
  CXmlDocument doc("<zol version='2'/>");
  EXPECT_TRUE(doc.FindElement("zol"));
  EXPECT_EQ(doc.GetAttribute("version"), "2");
  CXmlDocument none(nullptr);
  EXPECT_EQ(none.GetDocument(), "");
  EXPECT_FALSE(none.FindElement());
}

TEST(XmlParse, DeclarationCommentsInstructionsAndDoctypeAroundTheRoot) {
  CXmlDocument doc;
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
      "<!DOCTYPE zol [ <!ENTITY gt \"a>b]\"> <!ATTLIST zol x CDATA '>'> <!-- ] > --> ]>\n"
      "<!-- a comment <b> -->\n<zol><?pi <x> ?><p>t</p></zol>\n<!-- tail -->";
  EXPECT_TRUE(doc.Parse(text)) << doc.GetError();
  EXPECT_EQ(doc.GetError(), "");
  EXPECT_TRUE(doc.FindElement("zol"));
  EXPECT_TRUE(doc.FindChildElement("p"));
  EXPECT_FALSE(doc.FindChildElement("b"));
  EXPECT_FALSE(doc.FindChildElement("x"));
}

TEST(XmlParse, GreaterThanInsideAQuotedValueDoesNotEndTheTag) {
  CXmlDocument doc("<a x='1>2' y=\"/>\"/>");
  EXPECT_EQ(doc.GetError(), "");
  ASSERT_TRUE(doc.FindElement("a"));
  EXPECT_EQ(doc.GetAttribute("x"), "1>2");
  EXPECT_EQ(doc.GetAttribute("y"), "/>");
  EXPECT_EQ(doc.GetData(), "");
}

TEST(XmlParse, EndTagMayCloseAStartTagWhoseNameGoesOnAfterABracket) {
  CXmlDocument doc;
  EXPECT_TRUE(doc.Parse("<a[1]>x</a>")) << doc.GetError();
  EXPECT_EQ(ErrorOf("<ab>x</a>"), "End tag 'a' at offset 6 does not match start tag 'ab' at offset 0");
  EXPECT_EQ(ErrorOf("<a>x</ab>"), "End tag 'ab' at offset 5 does not match start tag 'a' at offset 0");
}

TEST(XmlParse, EndTagMayHoldBlanksBeforeItsGreaterThan) {
  CXmlDocument doc;
  EXPECT_TRUE(doc.Parse("<a>x</a  \n>")) << doc.GetError();
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetData(), "x");
}

// --- navigation ---

namespace {
const char* const kPage =
    "<zol version='1'>"
    "<h1>Title</h1>"
    "<zol_table type='results'><zol_rh type='position'>Pos</zol_rh><zol_rh type='name'>Name</zol_rh></zol_table>"
    "<zol_label type='runname'/>"
    "<zol_table type='laps'/>"
    "</zol>";
}

TEST(XmlNavigate, FirstFindIsTheRoot) {
  CXmlDocument doc(kPage);
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetTagName(), "zol");
  EXPECT_FALSE(doc.FindElement()) << "the root has no sibling";
  EXPECT_EQ(doc.GetTagName(), "zol") << "a failed find stays put";
}

TEST(XmlNavigate, NamedFindOfTheRoot) {
  CXmlDocument doc(kPage);
  EXPECT_FALSE(doc.FindElement("html"));
  EXPECT_EQ(doc.GetTagName(), "");
  EXPECT_TRUE(doc.FindElement("zol"));
  EXPECT_EQ(doc.GetAttribute("version"), "1");
}

TEST(XmlNavigate, ChildFindWithoutCurrentElementStartsAtRoot) {
  CXmlDocument doc(kPage);
  ASSERT_TRUE(doc.FindChildElement("zol_table"));
  EXPECT_EQ(doc.GetTagName(), "zol");
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetTagName(), "zol_table");
  EXPECT_EQ(doc.GetAttribute("type"), "results");
}

TEST(XmlNavigate, ChildFindsWalkOnAlongTheSiblings) {
  CXmlDocument doc(kPage);
  ASSERT_TRUE(doc.FindElement("zol"));
  ASSERT_TRUE(doc.FindChildElement("zol_table"));
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetAttribute("type"), "results");
  ASSERT_TRUE(doc.OutOfElement());
  EXPECT_EQ(doc.GetTagName(), "zol");
  ASSERT_TRUE(doc.FindChildElement("zol_table"));
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetAttribute("type"), "laps");
  ASSERT_TRUE(doc.OutOfElement());
  EXPECT_FALSE(doc.FindChildElement("zol_table"));
}

TEST(XmlNavigate, AnyNameMatchesEveryElement) {
  CXmlDocument doc(kPage);
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.IntoElement());
  std::string names;
  while (doc.FindElement("*")) names += doc.GetTagName() + ",";
  EXPECT_EQ(names, "h1,zol_table,zol_label,zol_table,");
  ASSERT_TRUE(doc.OutOfElement());
  EXPECT_EQ(doc.GetTagName(), "zol");
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_FALSE(doc.FindElement("")) << "back into the level at its last element";
  doc.ResetPosition();
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.IntoElement());
  names.clear();
  while (doc.FindElement("")) names += doc.GetTagName() + ",";
  EXPECT_EQ(names, "h1,zol_table,zol_label,zol_table,");
}

TEST(XmlNavigate, LeadingSlashSearchesFromTheRoot) {
  CXmlDocument doc(kPage);
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.FindChildElement("zol_table"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.FindChildElement("zol_rh"));
  EXPECT_TRUE(doc.FindElement("/zol"));
  EXPECT_EQ(doc.GetTagName(), "zol");
  EXPECT_EQ(doc.GetChildIndex(), 0u);
  EXPECT_FALSE(doc.OutOfElement()) << "the root has no parent";
  EXPECT_FALSE(doc.FindElement("/h1")) << "h1 is not at the top";
  EXPECT_EQ(doc.GetTagName(), "zol") << "a failed find stays put";
}

TEST(XmlNavigate, NameEndsAtBracketButNotEarlier) {
  CXmlDocument doc("<r><ab/><a[2]/><a/></r>");
  ASSERT_TRUE(doc.FindElement("r"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.FindElement("a"));
  EXPECT_EQ(doc.GetTagName(), "a[2]");
  ASSERT_TRUE(doc.FindElement("a"));
  EXPECT_EQ(doc.GetTagName(), "a");
  EXPECT_FALSE(doc.FindElement("a"));
}

TEST(XmlNavigate, IntoAndOutOfAtTheEdges) {
  CXmlDocument doc(kPage);
  EXPECT_FALSE(doc.IntoElement()) << "no element is current";
  EXPECT_FALSE(doc.OutOfElement());
  ASSERT_TRUE(doc.FindElement());
  EXPECT_TRUE(doc.IntoElement()) << "into the root's level, no child found yet";
  EXPECT_EQ(doc.GetTagName(), "");
  EXPECT_TRUE(doc.FindElement("zol_label"));
  EXPECT_TRUE(doc.OutOfElement());
  EXPECT_EQ(doc.GetTagName(), "zol");
  EXPECT_FALSE(doc.OutOfElement());
}

TEST(XmlNavigate, ResetPositionGoesBackToTheTop) {
  CXmlDocument doc(kPage);
  ASSERT_TRUE(doc.FindChildElement("h1"));
  doc.ResetPosition();
  EXPECT_EQ(doc.GetTagName(), "");
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetTagName(), "zol");
}

// --- attributes and data ---

TEST(XmlAttributes, QuotedUnquotedAndMissing) {
  CXmlDocument doc("<t a=\"1\" b='two words' c=3 d e = 'spaced' f='x&amp;y&lt;&#65;&#x42;'/>");
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetAttribute("a"), "1");
  EXPECT_EQ(doc.GetAttribute("b"), "two words");
  EXPECT_EQ(doc.GetAttribute("c"), "3");
  EXPECT_EQ(doc.GetAttribute("d"), "");
  EXPECT_EQ(doc.GetAttribute("e"), "spaced");
  EXPECT_EQ(doc.GetAttribute("f"), "x&y<AB");
  EXPECT_EQ(doc.GetAttribute("g"), "");
  EXPECT_EQ(doc.GetAttribute("t"), "") << "the tag name is no attribute";
  EXPECT_EQ(doc.GetAttribute(""), "");
}

TEST(XmlAttributes, NoElementGivesEmptyString) {
  CXmlDocument doc("<t a='1'/>");
  EXPECT_EQ(doc.GetAttribute("a"), "");
}

TEST(XmlAttributes, ValueThatLooksLikeANameIsNotTakenForOne) {
  CXmlDocument doc("<t a='b' b='c'/>");
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetAttribute("b"), "c");
}

TEST(XmlData, TextIsDecoded) {
  CXmlDocument doc("<t>a &lt;b&gt; &amp; &apos;c&quot; &#233;&#x20AC; &nbsp; &#xZZ; & end</t>");
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetData(), "a <b> & 'c\" \xC3\xA9\xE2\x82\xAC &nbsp; &#xZZ; & end");
}

TEST(XmlData, CDataIsTakenAsWrittenAndCommentsAreLeftOut) {
  CXmlDocument doc("<t>a<!-- x --><![CDATA[<b>&amp;]]><?pi?>c</t>");
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetData(), "a<b>&amp;c");
}

TEST(XmlData, ElementWithChildrenOrWithoutContentGivesEmpty) {
  CXmlDocument doc("<t>x<c>y</c>z<e/></t>");
  ASSERT_TRUE(doc.FindElement());
  EXPECT_EQ(doc.GetData(), "");
  ASSERT_TRUE(doc.FindChildElement("c"));
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetData(), "y");
  ASSERT_TRUE(doc.FindElement("e"));
  EXPECT_EQ(doc.GetData(), "");
}

// --- write-out ---

TEST(XmlSetData, CDataHoldingSectionEndRoundTrips) {
  const std::string text = "a]]>b]]]>c]]>";
  CXmlDocument doc("<zol><v/></zol>");
  ASSERT_TRUE(doc.FindChildElement("v"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.SetData(text, true));
  EXPECT_EQ(doc.GetDocument(),
            "<zol><v><![CDATA[a]]]]><![CDATA[>b]]]]]><![CDATA[>c]]]]><![CDATA[>]]></v></zol>");
  EXPECT_EQ(doc.GetData(), text);
  CXmlDocument again(doc.GetDocument().c_str());
  EXPECT_EQ(again.GetError(), "");
  ASSERT_TRUE(again.FindChildElement("v"));
  ASSERT_TRUE(again.IntoElement());
  EXPECT_EQ(again.GetData(), text);
}

TEST(XmlSetData, EscapedTextRoundTrips) {
  const std::string text = "1 < 2 && 3 > 2 'q' \"d\" ]]>";
  CXmlDocument doc("<v>old</v>");
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.SetData(text, false));
  EXPECT_EQ(doc.GetDocument(), "<v>1 &lt; 2 &amp;&amp; 3 &gt; 2 'q' \"d\" ]]&gt;</v>");
  EXPECT_EQ(doc.GetData(), text);
  CXmlDocument again(doc.GetDocument().c_str());
  ASSERT_TRUE(again.FindElement());
  EXPECT_EQ(again.GetData(), text);
}

TEST(XmlSetData, EmptyElementIsOpenedWithAnEndTag) {
  CXmlDocument doc("<zol><zol_label type=\"runname\"/></zol>");
  ASSERT_TRUE(doc.FindChildElement("zol_label"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.SetData("Final", false));
  EXPECT_EQ(doc.GetDocument(), "<zol><zol_label type=\"runname\">Final</zol_label></zol>");
  EXPECT_EQ(doc.GetData(), "Final");
  EXPECT_EQ(doc.GetAttribute("type"), "runname");
  ASSERT_TRUE(doc.SetData("", false));
  EXPECT_EQ(doc.GetDocument(), "<zol><zol_label type=\"runname\"></zol_label></zol>");
  ASSERT_TRUE(doc.SetData("x", true));
  EXPECT_EQ(doc.GetData(), "x");
  EXPECT_EQ(doc.GetDocument(), "<zol><zol_label type=\"runname\"><![CDATA[x]]></zol_label></zol>");
}

TEST(XmlSetData, EveryClosingSlashOfAnEmptyTagGoes) {
  CXmlDocument doc("<r><a x=\"1\"//><b/></r>");
  ASSERT_TRUE(doc.FindChildElement("a"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.SetData("v", false));
  EXPECT_EQ(doc.GetDocument(), "<r><a x=\"1\">v</a><b/></r>");
  CXmlDocument again(doc.GetDocument().c_str());
  EXPECT_EQ(again.GetError(), "");
  EXPECT_EQ(again.GetElementCount(), 3u);
}

TEST(XmlSetData, ElementWithChildrenIsRefused) {
  CXmlDocument doc("<a><b/></a>");
  ASSERT_TRUE(doc.FindElement());
  EXPECT_FALSE(doc.SetData("x", false));
  EXPECT_EQ(doc.GetDocument(), "<a><b/></a>");
  CXmlDocument none("<a/>");
  EXPECT_FALSE(none.SetData("x", false)) << "no element is current";
}

TEST(XmlSetData, FollowingElementsMoveWithTheText) {
  CXmlDocument doc("<r><a><x/><y>1</y></a><b k='v'><c>old</c><d/></b><e>tail</e></r>");
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.FindElement("a"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.FindElement("x"));
  ASSERT_TRUE(doc.SetData("a much longer text than before", false));
  ASSERT_TRUE(doc.FindElement("y"));
  ASSERT_TRUE(doc.SetData("", false));
  EXPECT_EQ(doc.GetData(), "");
  ASSERT_TRUE(doc.OutOfElement());
  ASSERT_TRUE(doc.OutOfElement());
  EXPECT_EQ(doc.GetTagName(), "r");

  // Every element still reads right after the edits in front of it.
  ASSERT_TRUE(doc.FindChildElement("b"));
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetAttribute("k"), "v");
  ASSERT_TRUE(doc.FindChildElement("c"));
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetData(), "old");
  ASSERT_TRUE(doc.SetData("new", false));
  ASSERT_TRUE(doc.FindElement("d"));
  ASSERT_TRUE(doc.SetData("dd", false));
  ASSERT_TRUE(doc.OutOfElement());
  ASSERT_TRUE(doc.OutOfElement());
  ASSERT_TRUE(doc.FindChildElement("e"));
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetData(), "tail");
  ASSERT_TRUE(doc.SetData("end", false));

  const std::string expected =
      "<r><a><x>a much longer text than before</x><y></y></a><b k='v'><c>new</c><d>dd</d></b>"
      "<e>end</e></r>";
  EXPECT_EQ(doc.GetDocument(), expected);
  // The edited text parses into the same tree.
  CXmlDocument again(doc.GetDocument().c_str());
  EXPECT_EQ(again.GetError(), "");
  ASSERT_TRUE(again.FindElement());
  EXPECT_TRUE(again.FindChildElement("e"));
}
