// The table template: its cells and rows, the reading of a zol_table with its header
// cells, row templates and sample cells, and the browser's view of it.
#include "site/ZOLTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "site/ZOLCell.h"
#include "site/ZOLRow.h"

namespace {

using Parts = std::vector<std::string>;

// A table with two columns and one row template, spread over lines as authors write them.
const char* const kTwoColumns =
    "<zol_table type=\"results\">\n"
    "  <caption>Results</caption>\n"
    "  <zol_rh type=\"position\">Pos</zol_rh>\n"
    "  <zol_rh type=\"name\" url=\"names.zol\">Name</zol_rh>\n"
    "  <zol_rr url=\"row.zol\" flags=\"odd\"><tr><td><zol_rd>1</zol_rd></td>"
    "<td><zol_rd url=\"driver.zol\" format=\"%s\" flags=\"bold|big\">Ann</zol_rd></td></tr></zol_rr>\n"
    "</zol_table>";

std::vector<std::string> CellTexts(const CZOLRow& row) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < row.GetCellCount(); ++i) texts.push_back(row.CellGetAt(i)->m_text);
  return texts;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Escaping and cells

TEST(ZOLTableEscape, ReplacesTheFiveMarkupCharactersByTheirEntities) {
  EXPECT_EQ(ZOLEscape("a&b<c>d'e\"f"), "a&amp;b&lt;c&gt;d&apos;e&quot;f");
}

TEST(ZOLTableEscape, AmpersandGoesFirstSoEntitiesAreNotEscapedTwice) {
  EXPECT_EQ(ZOLEscape("<<&&"), "&lt;&lt;&amp;&amp;");
  EXPECT_EQ(ZOLEscape("&lt;"), "&amp;lt;") << "an entity in the source text is text, and is escaped";
}

TEST(ZOLTableEscape, PlainAndEmptyTextStayAsTheyAre) {
  EXPECT_EQ(ZOLEscape(""), "");
  EXPECT_EQ(ZOLEscape("Ann Smith 1:23.456"), "Ann Smith 1:23.456");
}

TEST(ZOLTableCell, HeaderFormWritesTypeAndUrlInSingleQuotesAndEscapesOnlyTheText) {
  CZOLCell cell("name");
  cell.m_url = "it's.zol";
  cell.m_text = "Name <1>";
  EXPECT_EQ(cell.ZOLExportColumn(), "<zol_rh type='name' url='it's.zol'>Name &lt;1&gt;</zol_rh>");
}

TEST(ZOLTableCell, HeaderFormLeavesOutEmptyAttributes) {
  CZOLCell cell;
  EXPECT_EQ(cell.ZOLExportColumn(), "<zol_rh></zol_rh>");
  EXPECT_EQ(cell.m_column, -1);
}

TEST(ZOLTableCell, DataFormWritesUrlFlagsAndFormatInThatOrder) {
  CZOLCell cell("laps");
  cell.m_format = "%d";
  cell.m_flags = "a|b";
  cell.m_url = "x.zol";
  cell.m_text = "12";
  EXPECT_EQ(cell.ZOLExportData(), "<zol_rd url='x.zol' flags='a|b' format='%d'>12</zol_rd>");
  cell.m_url.clear();
  cell.m_format.clear();
  EXPECT_EQ(cell.ZOLExportData(), "<zol_rd flags='a|b'>12</zol_rd>");
}

// ---------------------------------------------------------------------------------------
// Rows

TEST(ZOLTableRow, CellGetAtGivesNullOutOfRange) {
  CZOLRow row;
  EXPECT_EQ(row.CellGetAt(0), nullptr);
  CZOLCell* cell = row.AddCell("no");
  EXPECT_EQ(row.CellGetAt(0), cell);
  EXPECT_EQ(cell->m_type, "no");
  EXPECT_EQ(row.CellGetAt(1), nullptr);
}

TEST(ZOLTableRow, AssignmentCopiesFlagsUrlPartsAndCellsDeeply) {
  CZOLRow row;
  row.m_flags = "f";
  row.m_url = "u";
  row.m_parts = {"<td>", kZOLCellMarker, "</td>"};
  row.AddCell("name")->m_text = "Ann";
  CZOLRow copy;
  copy.AddCell("other");
  copy = row;
  EXPECT_EQ(copy.m_flags, "f");
  EXPECT_EQ(copy.m_url, "u");
  EXPECT_EQ(copy.m_parts, row.m_parts);
  ASSERT_EQ(copy.GetCellCount(), 1u);
  EXPECT_NE(copy.CellGetAt(0), row.CellGetAt(0));
  copy.CellGetAt(0)->m_text = "Bea";
  EXPECT_EQ(row.CellGetAt(0)->m_text, "Ann");
}

TEST(ZOLTableRow, ClearRowDataEmptiesThePartsOnlyAndClearForgetsEverything) {
  CZOLRow row;
  row.m_flags = "f";
  row.m_url = "u";
  row.m_parts = {kZOLCellMarker};
  row.AddCell("name");
  row.ClearRowData();
  EXPECT_TRUE(row.m_parts.empty());
  EXPECT_EQ(row.GetCellCount(), 1u);
  EXPECT_EQ(row.m_flags, "f");
  row.Clear();
  EXPECT_EQ(row.GetCellCount(), 0u);
  EXPECT_EQ(row.m_flags, "");
  EXPECT_EQ(row.m_url, "");
}

TEST(ZOLTableRow, WireFormWritesOneCellAtEachMarkerWhileCellsLastAndAttributesUnescaped) {
  CZOLRow row;
  row.m_url = "a'b";
  row.m_flags = "x";
  row.m_parts = {"<td>", kZOLCellMarker, "</td><td>", kZOLCellMarker, "</td>", kZOLCellMarker};
  row.AddCell("no")->m_text = "7";
  row.AddCell("name")->m_text = "A&B";
  EXPECT_EQ(row.ZOLExport(),
            "<zol_rr url='a'b' flags='x'><td><zol_rd>7</zol_rd></td><td><zol_rd>A&amp;B</zol_rd></td></zol_rr>");
  EXPECT_EQ(row.HTMLExport(), "<td>7</td><td>A&B</td>");
}

// ---------------------------------------------------------------------------------------
// Reading a template

TEST(ZOLTableImport, ReadsAttributesPartsHeaderCellsAndTheRowTemplate) {
  CZOLTable table(3, nullptr);
  ASSERT_EQ(table.ZOLImport(kTwoColumns), TRUE);
  EXPECT_EQ(table.GetId(), 3);
  EXPECT_EQ(table.GetType(), "results");
  EXPECT_EQ(table.GetParts(), (Parts{"\n  <caption>Results</caption>\n", "#RH#position", "\n", "#RH#name", "\n", "#RR#", "\n"}));

  const CZOLRow& header = table.GetHeaderRow();
  ASSERT_EQ(header.GetCellCount(), 2u);
  EXPECT_EQ(header.CellGetAt(0)->m_type, "position");
  EXPECT_EQ(header.CellGetAt(0)->m_text, "Pos");
  EXPECT_EQ(header.CellGetAt(1)->m_url, "names.zol");
  EXPECT_EQ(header.CellGetAt(1)->m_text, "Name");

  const auto& rows = table.GetRows();
  ASSERT_EQ(rows.size(), 1u);
  const CZOLRow& row = *rows[0];
  EXPECT_EQ(row.m_url, "row.zol");
  EXPECT_EQ(row.m_flags, "odd");
  EXPECT_EQ(row.m_parts, (Parts{"<tr><td>", "#RD#", "</td><td>", "#RD#", "</td></tr>"}));
  EXPECT_EQ(CellTexts(row), (std::vector<std::string>{"1", "Ann"}));
  EXPECT_EQ(row.CellGetAt(1)->m_type, "name");
  EXPECT_EQ(row.CellGetAt(1)->m_url, "driver.zol");
  EXPECT_EQ(row.CellGetAt(1)->m_format, "%s");
  EXPECT_EQ(row.CellGetAt(1)->m_flags, "bold|big");

  const CZOLRow& model = table.GetTemplateRow();
  EXPECT_EQ(model.m_parts, row.m_parts) << "the first row template becomes the template row";
  EXPECT_EQ(CellTexts(model), (std::vector<std::string>{"1", "Ann"}));
  EXPECT_EQ(model.m_url, "row.zol");
}

TEST(ZOLTableImport, TemplateCellsHaveNoUrlOfTheirHeader) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><zol_rh type='name' url='u'>N</zol_rh></zol_table>"), TRUE);
  EXPECT_EQ(table.GetHeaderRow().CellGetAt(0)->m_url, "u");
  EXPECT_EQ(table.GetTemplateRow().CellGetAt(0)->m_url, "");
  EXPECT_EQ(table.GetTemplateRow().CellGetAt(0)->m_text, "N");
}

TEST(ZOLTableImport, ShowheaderStartrowAndMaxrowsAreKeptAsWritten) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='race' showheader='False' startrow='05' maxrows='x'/>"), TRUE);
  EXPECT_EQ(table.GetShowHeader(), "False");
  EXPECT_EQ(table.GetStartRow(), "05");
  EXPECT_EQ(table.GetMaxRows(), "x");
  EXPECT_EQ(table.GetParts(), (Parts{""})) << "an empty element has no inner text";
}

TEST(ZOLTableImport, TrimmingRemovesBlanksOnlyNotTabsOrLineBreaks) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'> \t<b/> <zol_rh type='no'/>  \n </zol_table>"), TRUE);
  EXPECT_EQ(table.GetParts(), (Parts{"\t<b/>", "#RH#no", "\n"}));
}

TEST(ZOLTableImport, WithoutTypeOrWithAnEmptyTypeTheImportFails) {
  CZOLTable table(0, nullptr);
  EXPECT_EQ(table.ZOLImport("<zol_table><zol_rh type='no'/><zol_rr><zol_rd>1</zol_rd></zol_rr></zol_table>"), FALSE);
  EXPECT_EQ(table.ZOLImport("<zol_table type=''></zol_table>"), FALSE);
  EXPECT_EQ(table.GetRows().size(), 0u);
}

TEST(ZOLTableImport, TextThatIsNoZolTableOrDoesNotParseFails) {
  CZOLTable table(0, nullptr);
  EXPECT_EQ(table.ZOLImport(""), FALSE);
  EXPECT_EQ(table.ZOLImport("<table type='x'></table>"), FALSE);
  EXPECT_EQ(table.ZOLImport("<zol_table type='x'><tr></zol_table>"), FALSE);
  EXPECT_EQ(table.ZOLImport("<zol_table type='x'"), FALSE);
  EXPECT_EQ(table.ZOLImport("not markup at all"), FALSE);
}

TEST(ZOLTableImport, ATableWithoutHeaderCellsHasRowsWithoutCells) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><zol_rr><i><zol_rd>a</zol_rd></i></zol_rr></zol_table>"), TRUE);
  ASSERT_EQ(table.GetRows().size(), 1u);
  const CZOLRow& row = *table.GetRows()[0];
  EXPECT_EQ(row.GetCellCount(), 0u);
  EXPECT_EQ(row.m_parts, (Parts{"<i>", "#RD#", "</i>"})) << "the marker stays, with no cell to write";
  EXPECT_EQ(row.ZOLExport(), "<zol_rr><i></i></zol_rr>");
}

TEST(ZOLTableImport, ASecondRowTemplateChangesOnlyItsOwnCellsNotTheTemplateRow) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><zol_rh type='no'>No</zol_rh><zol_rh type='name'>Name</zol_rh>"
                            "<zol_rr flags='first'><zol_rd>1</zol_rd>|<zol_rd url='a'>Ann</zol_rd></zol_rr>"
                            "<zol_rr><b><zol_rd>2</zol_rd></b></zol_rr></zol_table>"),
            TRUE);
  const auto& rows = table.GetRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(CellTexts(*rows[0]), (std::vector<std::string>{"1", "Ann"}));
  EXPECT_EQ(CellTexts(*rows[1]), (std::vector<std::string>{"2", "Ann"}))
      << "the second row starts from the first and only its zol_rd changes a cell";
  EXPECT_EQ(rows[1]->m_parts, (Parts{"<b>", "#RD#", "</b>"})) << "its own text, not the first row's";
  EXPECT_EQ(rows[1]->m_flags, "") << "its own attributes";
  EXPECT_EQ(rows[1]->CellGetAt(1)->m_url, "a");
  EXPECT_EQ(CellTexts(table.GetTemplateRow()), (std::vector<std::string>{"1", "Ann"}));
  EXPECT_EQ(table.GetTemplateRow().m_parts, (Parts{"", "#RD#", "|", "#RD#", ""}));
  EXPECT_EQ(table.GetTemplateRow().m_flags, "first");
  EXPECT_EQ(table.GetParts(), (Parts{"", "#RH#no", "", "#RH#name", "", "#RR#", "", "#RR#", ""}));
}

TEST(ZOLTableImport, SampleCellsBeyondTheHeaderCellsAreWrittenNowhereButKeepTheirMarker) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><zol_rh type='no'/>"
                            "<zol_rr><zol_rd>1</zol_rd><zol_rd>2</zol_rd></zol_rr></zol_table>"),
            TRUE);
  const CZOLRow& row = *table.GetRows()[0];
  EXPECT_EQ(CellTexts(row), (std::vector<std::string>{"1"}));
  EXPECT_EQ(row.ZOLExport(), "<zol_rr><zol_rd>1</zol_rd></zol_rr>");
}

TEST(ZOLTableImport, SampleCellTextIsDecodedAndSelfClosingSampleCellsAreEmpty) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><zol_rh type='no'/><zol_rh type='name'/>"
                            "<zol_rr><zol_rd flags='f'/><zol_rd>A &lt;B&gt; &amp; C</zol_rd></zol_rr></zol_table>"),
            TRUE);
  const CZOLRow& row = *table.GetRows()[0];
  EXPECT_EQ(CellTexts(row), (std::vector<std::string>{"", "A <B> & C"}));
  EXPECT_EQ(row.CellGetAt(0)->m_flags, "f");
  EXPECT_EQ(row.ZOLExport(), "<zol_rr><zol_rd flags='f'></zol_rd><zol_rd>A &lt;B&gt; &amp; C</zol_rd></zol_rr>");
}

TEST(ZOLTableImport, OtherChildrenAndNestedTagsStayLiteralText) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><caption>C</caption><tr><zol_rh type='no'>No</zol_rh></tr>"
                            "<zol_rr><tr><td><zol_rd>1</zol_rd></td></tr></zol_rr></zol_table>"),
            TRUE);
  EXPECT_EQ(table.GetHeaderRow().GetCellCount(), 0u) << "a zol_rh inside a tr is not at the first level";
  EXPECT_EQ(table.GetParts(),
            (Parts{"<caption>C</caption><tr><zol_rh type='no'>No</zol_rh></tr>", "#RR#", ""}));
}

TEST(ZOLTableImport, AnUnknownColumnNameIsReadLikeAnyOther) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><zol_rh type='shoesize'>Size</zol_rh></zol_table>"), TRUE);
  EXPECT_EQ(table.GetParts(), (Parts{"", "#RH#shoesize", ""}));
  EXPECT_EQ(table.GetTemplateRow().CellGetAt(0)->m_type, "shoesize");
}

TEST(ZOLTableImport, ASecondImportStartsFromNothing) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport(kTwoColumns), TRUE);
  ASSERT_EQ(table.ZOLImport("<zol_table type='race'><zol_rh type='no'/><zol_rr>[<zol_rd>9</zol_rd>]</zol_rr>"
                            "</zol_table>"),
            TRUE);
  EXPECT_EQ(table.GetType(), "race");
  EXPECT_EQ(table.GetHeaderRow().GetCellCount(), 1u);
  ASSERT_EQ(table.GetRows().size(), 1u);
  EXPECT_EQ(table.GetRows()[0]->m_parts, (Parts{"[", "#RD#", "]"}));
  EXPECT_EQ(table.GetRows()[0]->m_url, "");
  EXPECT_EQ(table.GetParts(), (Parts{"", "#RH#no", "", "#RR#", ""}));
}

TEST(ZOLTableImport, ClearWithoutFullKeepsTheTemplateAndDropsTheRows) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport(kTwoColumns), TRUE);
  table.Clear(FALSE);
  EXPECT_TRUE(table.GetRows().empty());
  EXPECT_EQ(table.GetType(), "results");
  EXPECT_EQ(table.GetTemplateRow().GetCellCount(), 2u);
  table.Clear(TRUE);
  EXPECT_EQ(table.GetType(), "");
  EXPECT_TRUE(table.GetParts().empty());
  EXPECT_EQ(table.GetTemplateRow().GetCellCount(), 0u);
  EXPECT_EQ(table.GetHeaderRow().GetCellCount(), 0u);
}

TEST(ZOLTableImport, BrokenOrOddTemplatesNeverCrash) {
  const std::vector<std::string> texts = {
      "<zol_table type='x'><zol_rh type='no'>",
      "<zol_table type='x'><zol_rr><zol_rd>1</zol_rd>",
      "<zol_table type='x'><zol_rr><zol_rd></zol_rr></zol_table>",
      "<zol_table type='x'><!-- <zol_rh type='no'>x</zol_rh> --><zol_rh type='name'>N</zol_rh></zol_table>",
      "<zol_table type='x'><zol_rhx/><zol_rh type='no'/></zol_table>",
      "<zol_table type='x'><zol_rr><zol_rdx>1</zol_rdx><zol_rd>2</zol_rd></zol_rr></zol_table>",
      "<zol_table type='x'><zol_rr/><zol_rr/><zol_rh/></zol_table>",
      "<zol_table type='x/>'></zol_table>",
      "<zol_table type='x'>\"</zol_table></zol_table>",
  };
  for (const std::string& text : texts) {
    CZOLTable table(0, nullptr);
    table.ZOLImport(text);
    (void)table.HTMLExport();
  }
  SUCCEED();
}

// ---------------------------------------------------------------------------------------
// The browser's view

TEST(ZOLTableHtml, WritesHeaderTextAndOneRowPerRowTemplateWithoutZolTags) {
  CZOLTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport(kTwoColumns), TRUE);
  EXPECT_EQ(table.HTMLExport(), "\n  <caption>Results</caption>\nPos\nName\n<tr><td>1</td><td>Ann</td></tr>\n");
}

TEST(ZOLTableHtml, HeaderIsHiddenOnlyByFalse) {
  const std::string body = "><zol_rh type='no'>No &amp; more</zol_rh>|</zol_table>";
  for (const char* value : {"False", "0", "true", ""}) {
    CZOLTable table(0, nullptr);
    ASSERT_EQ(table.ZOLImport(std::string("<zol_table type='x' showheader='") + value + "'" + body), TRUE);
    EXPECT_EQ(table.HTMLExport(), "No & more|") << value;
  }
  CZOLTable hidden(0, nullptr);
  ASSERT_EQ(hidden.ZOLImport("<zol_table type='x' showheader='false'" + body), TRUE);
  EXPECT_EQ(hidden.HTMLExport(), "|");
}

TEST(ZOLTableHtml, EachRowTemplateShowsItsOwnRowWhenItsNumberIsInRange) {
  const std::string rows = "><zol_rh type='no'/><zol_rr>[<zol_rd>1</zol_rd>]</zol_rr>"
                           "<zol_rr>(<zol_rd>2</zol_rd>)</zol_rr><zol_rr>{<zol_rd>3</zol_rd>}</zol_rr></zol_table>";
  CZOLTable all(0, nullptr);
  ASSERT_EQ(all.ZOLImport("<zol_table type='x'" + rows), TRUE);
  EXPECT_EQ(all.HTMLExport(), "[1](2){3}");
  CZOLTable fromSecond(0, nullptr);
  ASSERT_EQ(fromSecond.ZOLImport("<zol_table type='x' startrow='2' maxrows='1'" + rows), TRUE);
  EXPECT_EQ(fromSecond.HTMLExport(), "(2)");
  CZOLTable onlyMaxrows(0, nullptr);
  ASSERT_EQ(onlyMaxrows.ZOLImport("<zol_table type='x' maxrows='1'" + rows), TRUE);
  EXPECT_EQ(onlyMaxrows.HTMLExport(), "[1](2){3}") << "maxrows counts only together with startrow";
  CZOLTable none(0, nullptr);
  ASSERT_EQ(none.ZOLImport("<zol_table type='x' startrow='1' maxrows='0'" + rows), TRUE);
  EXPECT_EQ(none.HTMLExport(), "");
}
