// What a site's build costs per page, against the same files read and packed one by one
// without a site: the ratio is the site's own overhead (folder walks, links, bookkeeping).
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/BenchPackage.h"
#include "distribution/OutputPage.h"
#include "frame/Package.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "views/RMComm.h"

namespace {

namespace fs = std::filesystem;

const char* const kWords[] = {"lap",    "driver", "sector",  "pit", "grid",   "class",   "fastest", "corner",
                              "finish", "start",  "penalty", "gap", "leader", "session", "track",   "flag"};
const char* const kNames[] = {"Ann Berger", "Tomas Keel", "Mira Olsen", "Joost Vermeer", "Lena Fisk",
                              "Omar Said",  "Ruth Kamp",  "Ivo Marek",  "Sara Lind",     "Paul Okafor"};

// A site of 500 files of a few KB each: mostly HTML, with stylesheets, scripts and GIF
// images in a handful of folders, and an index.zol that includes three templates.
class GeneratedSite {
 public:
  static constexpr int kPlainFiles = 496;

  GeneratedSite() {
    std::mt19937 random(20261122);
    std::uniform_int_distribution<unsigned> suffix(0, 0xFFFFFF);
    do {
      Folder = fs::temp_directory_path() / ("zolbench-site-" + std::to_string(suffix(random)));
    } while (!fs::create_directory(Folder));
    const char* const htmlFolders[] = {"", "drivers/", "news/", "classes/", "archive/2025/", "archive/2024/"};
    for (int i = 0; i < 300; ++i)
      Write(std::string(htmlFolders[i % 6]) + "page" + std::to_string(i) + ".html", Html(random, i));
    for (int i = 0; i < 40; ++i) Write("css/style" + std::to_string(i) + ".css", Css(random, i));
    for (int i = 0; i < 36; ++i) Write("js/script" + std::to_string(i) + ".js", Script(random, i));
    for (int i = 0; i < 120; ++i)
      Write((i % 2 ? "images/" : "drivers/photos/") + std::to_string(i) + ".gif", Gif(random));
    Write("index.zol",
          "<zol version=\"1\" id=\"index\" type=\"html\" refresh=\"10\">\n<html><body>\n"
          "<zol_include file=\"standings.zol\" path=\"pages/\"/>\n<zol_include file=\"clock.zol\" path=\"pages/\"/>\n"
          "<zol_include file=\"top.zol\" path=\"results/\"/>\n</body></html>\n</zol>\n");
    Write("pages/standings.zol", TableTemplate("standings", 20));
    Write("pages/clock.zol",
          "<zol version=\"1\" id=\"clock\" type=\"html\">\n<zol_table type=\"none\"/>\n<div class=\"clock\">"
          "<zol_label type=\"runname\"/> <zol_label type=\"flag\"/> <zol_label type=\"racetime\"/> "
          "<zol_label type=\"timetogo\"/></div>\n</zol>\n");
    Write("results/top.zol", TableTemplate("top", 3));
  }
  GeneratedSite(const GeneratedSite&) = delete;
  GeneratedSite& operator=(const GeneratedSite&) = delete;
  ~GeneratedSite() {
    std::error_code error;
    fs::remove_all(Folder, error);
  }

  std::string Root() const { return Folder.string() + "/"; }

 private:
  void Write(const std::string& relative, const std::string& contents) const {
    const fs::path path = Folder / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
  }

  static std::string Sentence(std::mt19937& random) {
    std::string out;
    const int words = 6 + static_cast<int>(random() % 10);
    for (int w = 0; w < words; ++w) out += std::string(w ? " " : "") + kWords[random() % 16];
    return out + ".";
  }

  static std::string Html(std::mt19937& random, int index) {
    const std::size_t size = 2048 + random() % 4096;
    std::string out = "<!DOCTYPE html>\n<html><head><title>Page " + std::to_string(index) +
                      "</title><link rel=\"stylesheet\" href=\"css/style" + std::to_string(index % 40) +
                      ".css\"></head>\n<body>\n<h1>" + Sentence(random) + "</h1>\n<table class=\"results\">\n";
    int row = 0;
    while (out.size() < size) {
      ++row;
      out += "<tr><td>" + std::to_string(row) + "</td><td>" + std::to_string(random() % 99 + 1) + "</td><td>" +
             kNames[random() % 10] + "</td><td>1:" + std::to_string(20 + random() % 40) + "." +
             std::to_string(100 + random() % 900) + "</td></tr>\n";
      if (row % 8 == 0) out += "</table>\n<p>" + Sentence(random) + " " + Sentence(random) + "</p>\n<table>\n";
    }
    return out + "</table>\n</body></html>\n";
  }

  static std::string Css(std::mt19937& random, int index) {
    const std::size_t size = 1024 + random() % 3072;
    std::string out;
    int rule = 0;
    while (out.size() < size) {
      out += ".block" + std::to_string(index) + "-" + std::to_string(rule++) + " { color: #" +
             std::to_string(100000 + random() % 899999) + "; margin: " + std::to_string(random() % 20) +
             "px; font-size: " + std::to_string(10 + random() % 8) + "pt; }\n";
    }
    return out;
  }

  static std::string Script(std::mt19937& random, int index) {
    const std::size_t size = 1024 + random() % 4096;
    std::string out = "// script " + std::to_string(index) + "\n";
    int line = 0;
    while (out.size() < size) {
      out += "function update" + std::to_string(line++) +
             "(table) {\n  const rows = table.rows.length;\n  if (rows > " + std::to_string(random() % 50) +
             ") table.className = \"" + kWords[random() % 16] + "\";\n}\n";
    }
    return out;
  }

  // A GIF header and a body of image data, which deflate cannot shrink much.
  static std::string Gif(std::mt19937& random) {
    const std::size_t size = 1024 + random() % 7168;
    std::string out = "GIF89a";
    while (out.size() < size) out += static_cast<char>(random() & 0xFF);
    return out;
  }

  static std::string TableTemplate(const std::string& id, int rows) {
    return "<zol version=\"1\" id=\"" + id +
           "\" type=\"html\">\n<table class=\"results\">\n<zol_table type=\"results\" startrow=\"1\" maxrows=\"" +
           std::to_string(rows) +
           "\">\n<zol_rh type=\"position\">Pos</zol_rh>\n<zol_rh type=\"no\">No</zol_rh>\n<zol_rh "
           "type=\"name\">Name</zol_rh>\n"
           "<zol_rh type=\"laps\">Laps</zol_rh>\n<zol_rh type=\"gap\">Gap</zol_rh>\n"
           "<zol_rr><tr><td><zol_rd>-</zol_rd></td><td><zol_rd>-</zol_rd></td><td><zol_rd>-</zol_rd></td>"
           "<td><zol_rd>-</zol_rd></td><td><zol_rd>-</zol_rd></td></tr></zol_rr>\n</zol_table>\n</table>\n</zol>\n";
  }

  fs::path Folder;
};

const GeneratedSite& Site() {
  static const GeneratedSite site;
  return site;
}

// Pages of a site apart from its information page (number 0).
std::size_t PublishedPages(const CZOLServerSite& site) {
  std::size_t count = 0;
  for (const auto& entry : site.GetPages()) count += entry.first != 0 ? 1 : 0;
  return count;
}

void ReportPages(benchmark::State& state, std::size_t pages) {
  state.counters["pages"] = static_cast<double>(pages);
  // Time per page: pages per second over the run, inverted.
  state.counters["per_page"] = benchmark::Counter(
      static_cast<double>(pages), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * pages));
}

void BM_SiteBuild(benchmark::State& state) {
  PackageInstalled package;
  const std::string root = Site().Root();
  CRMComm comm(nullptr);
  CZOLServerSite site(1, &comm);
  for (auto _ : state) {
    site.Build(root, -1, 1);
    benchmark::DoNotOptimize(site.GetPages().size());
  }
  ReportPages(state, PublishedPages(site));
}
BENCHMARK(BM_SiteBuild)->Unit(benchmark::kMillisecond);

// A page that the site published, as the baseline makes it again by hand.
struct PagePlan {
  DWORD Number;
  DWORD Level;
  DWORD Repeat;
  std::string Path;
  std::string File;
  bool Template;
};

// The same pages as the site publishes, each made, read and packed on its own: plain
// files by COutputPage, templates by CZOLServerPage with their export.
void BM_SiteBuild_Baseline(benchmark::State& state) {
  PackageInstalled package;
  const std::string root = Site().Root();
  CRMComm comm(nullptr);
  std::vector<PagePlan> plans;
  {
    CZOLServerSite site(1, &comm);
    site.Build(root, -1, 1);
    for (const auto& [number, page] : site.GetPages()) {
      if (number == 0) continue;
      plans.push_back({number, page->GetPageKey() >> 30, page->GetRepeat(), page->GetPath(), page->GetSourceFilename(),
                       page->GetIsTemplate() != 0});
    }
  }
  for (auto _ : state) {
    std::vector<std::unique_ptr<COutputPage>> pages;
    pages.reserve(plans.size());
    for (const PagePlan& plan : plans) {
      if (plan.Template) {
        auto page = std::make_unique<CZOLServerPage>(1, plan.Number, plan.Level, plan.Repeat, plan.Path, plan.File);
        page->Initialize(&comm, -1, root, -1, "");
        page->ZOLExport();
        page->BuildPackets();
        pages.push_back(std::move(page));
      } else {
        auto page = std::make_unique<COutputPage>(1, plan.Number, plan.Level, plan.Repeat, plan.Path, plan.File);
        page->FileImport(root);
        page->BuildPackets();
        pages.push_back(std::move(page));
      }
    }
    benchmark::DoNotOptimize(pages.data());
  }
  ReportPages(state, plans.size());
}
BENCHMARK(BM_SiteBuild_Baseline)->Unit(benchmark::kMillisecond);

}  // namespace
