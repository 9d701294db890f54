// The demonstration site that zolhost serves from examples/: its templates must read
// with the module's own parser, use only tags, table types, columns and labels that the
// module knows, stand where the site looks for them, and link only to files that exist.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "site/ElementEndScan.h"
#include "site/ZOLServerInclude.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "site/xml/XmlDocument.h"
#include "testing/ModuleFixture.h"
#include "views/RMComm.h"

namespace {

namespace fs = std::filesystem;

const std::string kSiteRoot = std::string(ZOL_SOURCE_DIR) + "/examples/site/";

// The template of a page: its folder inside the site ("" or ending in "/") and its name.
struct TemplateFile {
  std::string Path;
  std::string File;
  std::string Relative() const { return Path + File; }
};

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<TemplateFile> AllTemplates() {
  std::vector<TemplateFile> out;
  for (const auto& entry : fs::recursive_directory_iterator(kSiteRoot)) {
    if (!entry.is_regular_file() || entry.path().extension() != ".zol") continue;
    const std::string relative = fs::relative(entry.path(), kSiteRoot).generic_string();
    const auto slash = relative.rfind('/');
    out.push_back(slash == std::string::npos ? TemplateFile{"", relative}
                                             : TemplateFile{relative.substr(0, slash + 1), relative.substr(slash + 1)});
  }
  std::sort(out.begin(), out.end(),
            [](const TemplateFile& a, const TemplateFile& b) { return a.Relative() < b.Relative(); });
  return out;
}

// Pages that clients show on their own carry a whole document; the others are parts
// that only ever appear inside another page.
bool IsWholeDocument(const std::string& text) { return text.find("<html>") != std::string::npos; }

// The well-known pages, at the folders and names under which every site looks for them.
const TemplateFile kWellKnown[] = {
    {"results/", "schedule.zol"},       {"results/", "current.zol"}, {"results/", "attheline.zol"},
    {"results/", "pitstops.zol"},       {"flash/", "ZOLFeed.zol"},   {"results/", "announcements.zol"},
    {"results/", "runinformation.zol"},
};

const std::set<std::string> kTableTypes = {"practice", "qualify",       "race", "results",
                                           "schedule", "announcements", "none"};

const std::set<std::string> kColumnNames = {
    "position",     "positioninclass", "no",          "class",       "name",        "firstname",     "lastname",
    "additional1",  "additional2",     "additional3", "additional4", "additional5", "additional6",   "additional7",
    "additional8",  "marker",          "averagetime", "lasttime",    "lastspeed",   "laps",          "totaltime",
    "averagespeed", "difference",      "gap",         "besttime",    "inlap",       "bestspeed",     "2ndbesttime",
    "2ndinlap",     "2ndbestspeed",    "datetime",    "groupname",   "runname",     "runtype",       "racedistance",
    "racetime",     "minlaptime",      "uniqueid",    "time",        "text",        "transpondernr", "regnumber",
};

// Labels that read the run information view. The static ones (tracklength) need a known
// event, so the demonstration pages do without them.
const std::set<std::string> kRunLabels = {
    "eventname", "trackname", "groupname",   "runname",   "runtype",  "runid",    "laps",      "leader", "avgspeed",
    "margin",    "lapstogo",  "bestlaptime", "bestlapby", "racetime", "timetogo", "timeofday", "flag",   "timestamp",
};

// The special elements of a template, cut out the way the page cuts them: from each
// "<zol" behind the root tag to the end the counting scan finds.
std::vector<std::string> SpecialElements(const std::string& text, std::string& problem) {
  std::vector<std::string> out;
  std::size_t at = text.find("<zol");
  at = text.find("<zol", at + 4);  // behind the root tag
  while (at != std::string::npos) {
    const std::string rest = text.substr(at);
    const std::size_t end = FindElementEnd(rest);
    if (end == std::string::npos) {
      problem = "element at offset " + std::to_string(at) + " is not closed";
      return out;
    }
    out.push_back(rest.substr(0, end));
    at = text.find("<zol", at + end);
  }
  return out;
}

// What is wrong with one zol_table element, or "" when nothing is.
std::string CheckTable(CXmlDocument& doc) {
  const std::string type = doc.GetAttribute("type");
  if (kTableTypes.count(type) == 0) return "table type '" + type + "' is unknown";
  // The row range is read from both attributes together: a limit names its start too.
  if (doc.GetAttribute("startrow").empty() != doc.GetAttribute("maxrows").empty()) {
    return "startrow and maxrows go together";
  }
  int headers = 0;
  int rows = 0;
  // Only the children at the first level count as columns and rows.
  while (doc.FindChildElement()) {
    doc.IntoElement();
    const std::string name = doc.GetTagName();
    if (name == "zol_rh") {
      ++headers;
      const std::string column = doc.GetAttribute("type");
      if (kColumnNames.count(column) == 0) return "column '" + column + "' is unknown";
    } else if (name == "zol_rr") {
      ++rows;
    }
    doc.OutOfElement();
  }
  if (type == "none") return headers == 0 && rows == 0 ? "" : "a table of type none never shows rows";
  const std::string& text = doc.GetDocument();
  int cells = 0;
  for (std::size_t at = text.find("<zol_rd"); at != std::string::npos; at = text.find("<zol_rd", at + 1)) ++cells;
  if (headers == 0) return "no zol_rh among the table's own children: it would have no columns";
  // Every zol_rr writes all rows again, so a table has exactly one.
  if (rows != 1) return std::to_string(rows) + " zol_rr among the table's own children, not one";
  if (cells != headers) return std::to_string(cells) + " zol_rd for " + std::to_string(headers) + " columns";
  return "";
}

// What is wrong with one special element, or "" when nothing is.
std::string CheckSpecialElement(const std::string& element, std::vector<TemplateFile>* includes) {
  CXmlDocument doc;
  if (!doc.Parse(element)) return "'" + element.substr(0, 40) + "' does not parse: " + doc.GetError();
  if (!doc.FindElement()) return "no element in '" + element.substr(0, 40) + "'";
  const std::string name = doc.GetTagName();
  if (name == "zol_table") return CheckTable(doc);
  if (name == "zol_label") {
    const std::string type = doc.GetAttribute("type");
    return kRunLabels.count(type) != 0 ? "" : "label type '" + type + "' is unknown";
  }
  if (name == "zol_include") {
    if (doc.GetAttribute("file").empty()) return "include without a file";
    if (includes != nullptr) includes->push_back({doc.GetAttribute("path"), doc.GetAttribute("file")});
    return "";
  }
  return "'" + name + "' is no special tag of a template";
}

// The local targets of href and src attributes: no scheme, no fragment-only links.
std::vector<std::string> LocalLinks(const std::string& text) {
  static const std::regex link(R"re((?:href|src)="([^"#:]+)")re");
  std::vector<std::string> out;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), link); it != std::sregex_iterator(); ++it) {
    out.push_back((*it)[1].str());
  }
  return out;
}

// A browser asks for a template under its exported name: results/current.zol is
// results/current.html. The file on disk behind a link is either.
bool LinkTargetExists(const fs::path& target) {
  if (fs::is_regular_file(target)) return true;
  if (target.extension() == ".html") {
    fs::path asTemplate = target;
    asTemplate.replace_extension(".zol");
    return fs::is_regular_file(asTemplate);
  }
  return false;
}

}  // namespace

TEST(DemoSite, EveryTemplateIsWellFormedWithTheRootZolFirst) {
  const auto templates = AllTemplates();
  ASSERT_GE(templates.size(), 8u);
  for (const TemplateFile& file : templates) {
    const std::string text = ReadFile(kSiteRoot + file.Relative());
    CXmlDocument doc;
    EXPECT_TRUE(doc.Parse(text)) << file.Relative() << ": " << doc.GetError();
    EXPECT_EQ(doc.GetError(), "") << file.Relative();
    ASSERT_TRUE(doc.FindElement()) << file.Relative();
    EXPECT_EQ(doc.GetTagName(), "zol") << file.Relative();
    // Text before the root tag would come out again inside the root element on the wire.
    EXPECT_EQ(text.rfind("<zol ", 0), 0u) << file.Relative() << " does not begin with its root tag";
  }
}

TEST(DemoSite, EveryTemplateReadsIntoChunksAndExportsAPage) {
  PackageScope scope;
  CRMComm comm(nullptr);
  for (const TemplateFile& file : AllTemplates()) {
    CZOLServerPage page(1, 8, 2, 40, file.Path, file.File);
    ASSERT_EQ(page.Initialize(&comm, -1, kSiteRoot, -1, ""), TRUE) << file.Relative();
    EXPECT_FALSE(page.GetChunks().empty()) << file.Relative();
    page.ZOLExport();
    const std::string wire = page.GetDataAsString();
    EXPECT_EQ(wire.rfind("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<zol version=\"1\" ", 0), 0u)
        << file.Relative();
    EXPECT_NE(wire.find("</zol>"), std::string::npos) << file.Relative();
  }
}

TEST(DemoSite, SpecialTagsAreKnownTablesLabelsAndIncludesThatEnd) {
  for (const TemplateFile& file : AllTemplates()) {
    const std::string text = ReadFile(kSiteRoot + file.Relative());
    std::string problem;
    const auto elements = SpecialElements(text, problem);
    EXPECT_EQ(problem, "") << file.Relative();
    EXPECT_FALSE(elements.empty()) << file.Relative() << " has no special tag at all";
    for (const std::string& element : elements) {
      EXPECT_EQ(CheckSpecialElement(element, nullptr), "") << file.Relative();
    }
  }
}

TEST(DemoSite, TheSevenWellKnownTemplatesStandWhereTheSiteLooksForThem) {
  PackageScope scope;
  CRMComm comm(nullptr);
  DWORD number = 1;
  for (const TemplateFile& file : kWellKnown) {
    EXPECT_TRUE(fs::is_regular_file(kSiteRoot + file.Relative())) << file.Relative();
    CZOLServerPage page(1, number++, 1, 30, file.Path, file.File);
    EXPECT_EQ(page.Initialize(&comm, -1, kSiteRoot, -1, ""), TRUE) << file.Relative();
    // Each of them shows live data: at least one table or label.
    const std::string text = ReadFile(kSiteRoot + file.Relative());
    EXPECT_TRUE(text.find("<zol_table") != std::string::npos || text.find("<zol_label") != std::string::npos)
        << file.Relative();
  }
}

TEST(DemoSite, IncludesFromTheIndexReachTemplatesOnDiskInSeveralFolders) {
  PackageScope scope;
  CRMComm comm(nullptr);
  // The site's own walk: a queue of links, each split by ProcessLink, each page read once.
  std::deque<std::string> queue{"||index.zol"};
  std::set<std::string> reached;
  std::set<std::string> folders;
  int linksUp = 0;
  while (!queue.empty()) {
    std::string link = queue.front();
    queue.pop_front();
    if (link.find("../") != std::string::npos) ++linksUp;
    std::string path;
    CZOLServerSite::ProcessLink(link, path);
    const std::string relative = path + link;
    ASSERT_TRUE(fs::is_regular_file(kSiteRoot + relative)) << "the link " << relative << " names no file";
    if (!reached.insert(relative).second) continue;
    folders.insert(path);
    CZOLServerPage page(1, 8, 2, 40, path, link);
    ASSERT_EQ(page.Initialize(&comm, -1, kSiteRoot, -1, ""), TRUE) << relative;
    EXPECT_EQ(page.GetLinks().size(), page.GetIncludes().size()) << relative;
    page.AddLinksToQueue(queue);
  }
  EXPECT_GE(reached.size(), 4u);
  EXPECT_GE(folders.size(), 3u) << "the index reaches pages in the root and two folders";
  EXPECT_GE(linksUp, 1) << "one included page includes another through \"..\"";
}

TEST(DemoSite, PagesIncludedFromTheIndexArePartsAndNotWholeDocuments) {
  PackageScope scope;
  CRMComm comm(nullptr);
  std::deque<std::string> queue{"||index.zol"};
  std::set<std::string> seen;
  while (!queue.empty()) {
    std::string link = queue.front();
    queue.pop_front();
    std::string path;
    CZOLServerSite::ProcessLink(link, path);
    if (!seen.insert(path + link).second) continue;
    if (path + link != "index.zol") {
      EXPECT_FALSE(IsWholeDocument(ReadFile(kSiteRoot + path + link))) << path + link << " would nest a document";
    }
    CZOLServerPage page(1, 8, 2, 40, path, link);
    ASSERT_EQ(page.Initialize(&comm, -1, kSiteRoot, -1, ""), TRUE);
    page.AddLinksToQueue(queue);
  }
  EXPECT_GT(seen.size(), 1u);
}

TEST(DemoSite, WholeDocumentsLinkTheStylesheet) {
  std::vector<std::string> documents;
  for (const TemplateFile& file : AllTemplates()) {
    if (IsWholeDocument(ReadFile(kSiteRoot + file.Relative()))) documents.push_back(file.Relative());
  }
  for (const auto& entry : fs::recursive_directory_iterator(kSiteRoot)) {
    if (entry.path().extension() == ".html")
      documents.push_back(fs::relative(entry.path(), kSiteRoot).generic_string());
  }
  ASSERT_GE(documents.size(), 8u);
  for (const std::string& relative : documents) {
    const auto links = LocalLinks(ReadFile(kSiteRoot + relative));
    const bool styled = std::any_of(links.begin(), links.end(), [&](const std::string& link) {
      const fs::path target = (fs::path(kSiteRoot + relative).parent_path() / link).lexically_normal();
      return target == fs::path(kSiteRoot + "style.css").lexically_normal();
    });
    EXPECT_TRUE(styled) << relative << " does not link style.css";
  }
}

TEST(DemoSite, LocalLinksPointAtFilesOfTheSite) {
  int checked = 0;
  for (const auto& entry : fs::recursive_directory_iterator(kSiteRoot)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".html" && extension != ".zol") continue;
    const std::string text = ReadFile(entry.path().string());
    // A part is shown inside the index, so its links start from the site's root.
    const fs::path base =
        extension == ".zol" && !IsWholeDocument(text) ? fs::path(kSiteRoot) : entry.path().parent_path();
    for (const std::string& link : LocalLinks(text)) {
      ++checked;
      EXPECT_TRUE(LinkTargetExists((base / link).lexically_normal()))
          << fs::relative(entry.path(), kSiteRoot).generic_string() << " links " << link;
    }
  }
  EXPECT_GE(checked, 20);
}

TEST(DemoSite, IndexIncludesReadAsIncludesWithFoldersEndingInSlash) {
  const std::string text = ReadFile(kSiteRoot + "index.zol");
  std::string problem;
  std::vector<TemplateFile> includes;
  for (const std::string& element : SpecialElements(text, problem)) {
    EXPECT_EQ(CheckSpecialElement(element, &includes), "");
    if (element.rfind("<zol_include", 0) != 0) continue;
    CZOLServerInclude include(0);
    EXPECT_EQ(include.ZOLImport(element), TRUE) << element;
    EXPECT_EQ(include.GetPath() + include.GetFile(), includes.back().Relative());
  }
  EXPECT_EQ(problem, "");
  ASSERT_GE(includes.size(), 2u);
  for (const TemplateFile& include : includes) {
    EXPECT_TRUE(include.Path.empty() || include.Path.back() == '/') << include.Path;
  }
}

TEST(DemoSite, StaysSmall) {
  std::uintmax_t total = 0;
  for (const auto& entry : fs::recursive_directory_iterator(kSiteRoot)) {
    if (entry.is_regular_file()) total += entry.file_size();
  }
  EXPECT_LT(total, 200u * 1024u);
}

TEST(DemoSite, SiteBuildPublishesItsPlainFiles) {
  PackageScope scope;
  CRMComm comm(nullptr);
  CZOLServerSite site(1, &comm);
  site.Build(kSiteRoot, -1, 1);
  std::set<std::string> published;
  for (const auto& [number, page] : site.GetPages()) published.insert(page->GetPath() + page->GetFilename());
  for (const char* file : {"welcome.html", "about.html", "style.css", "clock.js", "images/flag.gif", "images/track.png",
                           "info/circuit.html"}) {
    EXPECT_EQ(published.count(file), 1u) << file;
  }
}
