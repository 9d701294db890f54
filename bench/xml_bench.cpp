// Parsing a page template of about 1 MB: the module's markup parser next to a general
// purpose stream parser given the same text.
#include <benchmark/benchmark.h>
#include <expat.h>

#include <string>

#include "site/xml/XmlDocument.h"

namespace {

// A results page: heading, labels, and a table whose rows hold cells with attributes,
// entities, a comment now and then, until the text reaches `size` bytes.
const std::string& Template(std::size_t size) {
  static const std::string text = [size] {
    std::string t = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<zol version=\"2\" id=\"7\" refresh=\"10\">\n";
    t += "<h1 class='title'>Results &amp; standings</h1>\n<zol_label type=\"runname\"/>\n";
    t += "<zol_table type=\"results\" showheader=\"1\" maxrows=\"0\">\n";
    t += "<tr><zol_rh type=\"position\">Pos</zol_rh><zol_rh type=\"name\" url=\"x\">Name</zol_rh>"
         "<zol_rh type=\"laps\">Laps</zol_rh><zol_rh type=\"besttime\">Best</zol_rh></tr>\n";
    for (int row = 0; t.size() < size - 200; ++row) {
      const std::string n = std::to_string(row);
      t += "<zol_rr flags=\"" + std::to_string(row % 4) + "\"><tr class='r" + n + "'>";
      t += "<zol_rd format=\"%d\">" + n + "</zol_rd>";
      t += "<zol_rd url=\"driver.zol?id=" + n + "\">M&#252;ller &lt;" + n + "&gt;</zol_rd>";
      t += "<zol_rd>" + std::to_string(row * 3 % 97) + "</zol_rd>";
      t += "<zol_rd flags='2'>1:2" + std::to_string(row % 10) + ".456</zol_rd></tr></zol_rr>\n";
      if (row % 50 == 0) t += "<!-- block " + n + " -->\n";
    }
    t += "</zol_table>\n<zol_include pageid='12'/>\n</zol>\n";
    return t;
  }();
  return text;
}

constexpr std::size_t kTemplateSize = 1 << 20;

void BM_XmlParse(benchmark::State& state) {
  const std::string& text = Template(kTemplateSize);
  for (auto _ : state) {
    CXmlDocument doc;
    if (!doc.Parse(text)) state.SkipWithError(doc.GetError().c_str());
    benchmark::DoNotOptimize(doc.GetElementCount());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_XmlParse)->Unit(benchmark::kMillisecond);

void CountElement(void* data, const XML_Char*, const XML_Char**) { ++*static_cast<long*>(data); }
void EndElement(void*, const XML_Char*) {}

void BM_XmlParse_Baseline(benchmark::State& state) {
  const std::string& text = Template(kTemplateSize);
  for (auto _ : state) {
    long elements = 0;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &elements);
    XML_SetElementHandler(parser, CountElement, EndElement);
    if (XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) != XML_STATUS_OK)
      state.SkipWithError(XML_ErrorString(XML_GetErrorCode(parser)));
    XML_ParserFree(parser);
    benchmark::DoNotOptimize(elements);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_XmlParse_Baseline)->Unit(benchmark::kMillisecond);

}  // namespace
