#include "host/WebFrame.h"
#include "web/HTMLText.h"

#include <cstdint>

namespace {

const char* const kNote =
    "Changes made on these pages last until the server stops: they are not saved. "
    "The settings the server starts with are kept in <CODE>Config/ZOLServer.ini</CODE> "
    "of its application directory.";

std::string ModuleLink(const WebModuleRegistration& module, const std::string& path) {
  return "/" + module.Prefix + "/" + path;
}

// The folder as pixels: '.' clear, 'o' outline, 'y' face, 'l' light edge.
const char* const kFolderPixels[16] = {
    "................", "................", ".oooooo.........", "oyyyyyyo........",
    "oyyyyyyyoooooooo", "olllllllllllllyo", "olyyyyyyyyyyyyyo", "olyyyyyyyyyyyyyo",
    "olyyyyyyyyyyyyyo", "olyyyyyyyyyyyyyo", "olyyyyyyyyyyyyyo", "olyyyyyyyyyyyyyo",
    "olyyyyyyyyyyyyyo", "oooooooooooooooo", "................", "................"};

int PaletteIndex(char pixel) {
  switch (pixel) {
    case 'o': return 1;
    case 'y': return 2;
    case 'l': return 3;
    default: return 0;
  }
}

// Writes codes of a fixed width, low bits first, as GIF packs them.
class BitWriter {
 public:
  void Put(unsigned code, int width) {
    for (int bit = 0; bit < width; ++bit) {
      if (((code >> bit) & 1U) != 0) Current = static_cast<std::uint8_t>(Current | (1U << Used));
      if (++Used == 8) Flush();
    }
  }
  std::string Finish() {
    if (Used > 0) Flush();
    return Bytes;
  }

 private:
  void Flush() {
    Bytes += static_cast<char>(Current);
    Current = 0;
    Used = 0;
  }
  std::string Bytes;
  std::uint8_t Current = 0;
  int Used = 0;
};

// A GIF whose image data is never compressed: a clear code before every two pixels keeps
// the code table from growing, so every code is three bits wide.
std::string BuildFolderGif() {
  std::string gif = "GIF89a";
  auto put16 = [&](unsigned value) {
    gif += static_cast<char>(value & 0xFF);
    gif += static_cast<char>((value >> 8) & 0xFF);
  };
  put16(16);
  put16(16);
  gif += static_cast<char>(0x81);  // a global colour table of 4 entries
  gif += '\0';                     // background colour
  gif += '\0';                     // aspect ratio
  const unsigned char palette[12] = {0xFF, 0xFF, 0xFF, 0x8A, 0x6A, 0x1A, 0xE8, 0xB8, 0x4A, 0xF8, 0xE0, 0x98};
  gif.append(reinterpret_cast<const char*>(palette), sizeof palette);
  // Colour 0 is transparent.
  gif += "\x21\xF9\x04\x01";
  gif += std::string("\x00\x00\x00\x00", 4);
  gif += ',';
  put16(0);
  put16(0);
  put16(16);
  put16(16);
  gif += '\0';
  const int minimumCodeSize = 2;
  const unsigned clearCode = 4;
  const unsigned endCode = 5;
  gif += static_cast<char>(minimumCodeSize);
  BitWriter bits;
  int inGroup = 0;
  for (const char* row : kFolderPixels) {
    for (int x = 0; x < 16; ++x) {
      if (inGroup == 0) bits.Put(clearCode, 3);
      bits.Put(static_cast<unsigned>(PaletteIndex(row[x])), 3);
      inGroup = (inGroup + 1) % 2;
    }
  }
  bits.Put(endCode, 3);
  const std::string data = bits.Finish();
  for (std::size_t at = 0; at < data.size(); at += 255) {
    const std::string block = data.substr(at, 255);
    gif += static_cast<char>(block.size());
    gif += block;
  }
  gif += '\0';
  gif += ';';
  return gif;
}

}  // namespace

std::string CWebFrame::Menu(const std::vector<WebModuleRegistration>& modules) {
  std::string menu = "<DIV class='Menu'>\n";
  for (const WebModuleRegistration& module : modules) {
    menu += "<DIV class='MenuModule'><A HREF='" + HtmlText(ModuleLink(module, module.HomePage)) + "'>" +
            HtmlText(module.Title) + "</A></DIV>\n<UL>\n";
    for (const auto& [path, title] : module.MenuPages) {
      menu += "<LI><A HREF='" + HtmlText(ModuleLink(module, path)) + "'>" + HtmlText(title) + "</A></LI>\n";
    }
    menu += "</UL>\n";
  }
  menu += "</DIV>\n";
  return menu;
}

std::string CWebFrame::Document(const std::vector<WebModuleRegistration>& modules, const WebFrameContent& content) {
  std::string title = modules.empty() ? std::string("Administration") : modules.front().Title;
  std::string html = "<!DOCTYPE HTML>\n<HTML>\n<HEAD>\n";
  html += "\t<meta charset='utf-8'>\n";
  html += "\t<TITLE>" + HtmlText(title) + "</TITLE>\n";
  html += std::string("\t<LINK rel='stylesheet' type='text/css' href='") + kStyleSheetPath + "'>\n";
  html += std::string("\t<LINK rel='icon' type='image/svg+xml' href='") + kIconPath + "'>\n";
  if (!content.HeadText.empty()) html += content.HeadText + "\n";
  html += "</HEAD>\n<BODY>\n";
  if (content.PrinterFriendly) {
    html += content.Body;
    html += "\n</BODY>\n</HTML>\n";
    return html;
  }
  html += "<TABLE class='Frame' cellspacing=0 cellpadding=0 BORDER=0>\n<TR>\n";
  html += "<TD class='FrameMenu' valign='top'>\n" + Menu(modules) + "</TD>\n";
  html += "<TD class='FrameMain' valign='top'>\n";
  if (!content.PrintLink.empty()) {
    html += "<DIV class='PrintLink'><A HREF='" + HtmlText(content.PrintLink) + "' target='_blank'>Print</A></DIV>\n";
  }
  html += content.Body;
  html += "\n<P class='FrameNote'>" + std::string(kNote) + "</P>\n";
  html += "</TD>\n</TR>\n</TABLE>\n</BODY>\n</HTML>\n";
  return html;
}

const std::string& CWebFrame::StyleSheet() {
  static const std::string sheet =
      "body { font-family: Verdana, Arial, sans-serif; font-size: 12px; margin: 0px; background-color: #f4f4f0; }\n"
      "table { font-size: 12px; }\n"
      "table.Frame { width: 100%; }\n"
      "td.FrameMenu { width: 180px; background-color: #20385a; color: white; padding: 10px; }\n"
      "td.FrameMenu a { color: white; text-decoration: none; }\n"
      "td.FrameMenu a:hover { text-decoration: underline; }\n"
      "td.FrameMenu ul { margin: 4px 0px 12px 0px; padding-left: 14px; }\n"
      "div.MenuModule { font-weight: bold; font-size: 13px; }\n"
      "td.FrameMain { padding: 12px; background-color: white; }\n"
      "div.PrintLink { float: right; }\n"
      "p.FrameNote { margin-top: 24px; padding: 6px; border: 1px solid #c8c8c0; background-color: #fbf8e8;"
      " color: #404040; width: 680px; }\n"
      ".TableHeader { background-color: #20385a; color: white; font-weight: bold; padding: 3px; }\n"
      ".TableSubHeader { background-color: #d8dfe8; color: #20385a; font-weight: bold; padding: 2px; }\n"
      "th { text-align: left; background-color: #d8dfe8; }\n"
      "h1 { font-size: 18px; color: #20385a; }\n";
  return sheet;
}

const std::string& CWebFrame::TextAreaScript() {
  static const std::string script =
      "// Tab in the page editor's text area inserts a tab at the caret instead of moving on.\n"
      "function onKeyDown(area, event) {\n"
      "  var e = event || window.event;\n"
      "  if (e.keyCode != 9 || e.shiftKey || e.ctrlKey || e.altKey) return true;\n"
      "  var start = area.selectionStart, end = area.selectionEnd, top = area.scrollTop;\n"
      "  area.value = area.value.substring(0, start) + '\\t' + area.value.substring(end);\n"
      "  area.selectionStart = area.selectionEnd = start + 1;\n"
      "  area.scrollTop = top;\n"
      "  if (e.preventDefault) e.preventDefault();\n"
      "  e.returnValue = false;\n"
      "  return false;\n"
      "}\n";
  return script;
}

const std::string& CWebFrame::FolderImage() {
  static const std::string gif = BuildFolderGif();
  return gif;
}

const std::string& CWebFrame::Icon() {
  // A flag on a pole in the colours of the menu.
  static const std::string svg =
      "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 16 16' width='16' height='16'>"
      "<rect width='16' height='16' rx='3' fill='#20385a'/>"
      "<rect x='3' y='2' width='1.5' height='12' fill='#ffffff'/>"
      "<path d='M4.5 2.5h8l-2 2.5 2 2.5h-8z' fill='#e8b84a'/>"
      "</svg>\n";
  return svg;
}
