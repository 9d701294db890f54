// The web server's own part of the administration site: the frame around a module's
// framed pages (menu, head text, print link, the note on where settings live), its style
// sheet, the script of the page editor's text area and the folder image.
#pragma once

#include <string>
#include <utility>
#include <vector>

// What a module told the web server when it registered: its title, the prefix it is
// served under, its home page and the pages of its menu, as path and title.
struct WebModuleRegistration {
  std::string Title;
  std::string Prefix;
  std::string HomePage;
  std::vector<std::pair<std::string, std::string>> MenuPages;
};

// What the frame shows around one page.
struct WebFrameContent {
  std::string HeadText;
  // The link to a version of the page to print; empty: no print link.
  std::string PrintLink;
  // The page was asked for a version to print: no menu and no print link.
  bool PrinterFriendly = false;
  std::string Body;
};

class CWebFrame {
 public:
  // Where the web server serves its own files.
  static constexpr const char* kStyleSheetPath = "/includes/frame.css";
  static constexpr const char* kTextAreaScriptPath = "/includes/textarea.js";
  static constexpr const char* kFolderImagePath = "/images/folder.gif";
  static constexpr const char* kIconPath = "/favicon.ico";

  // The whole HTML document of a framed page, with the menu of every registered module.
  static std::string Document(const std::vector<WebModuleRegistration>& modules, const WebFrameContent& content);
  // The menu alone: per module its title, its home page and the pages of its menu.
  static std::string Menu(const std::vector<WebModuleRegistration>& modules);

  static const std::string& StyleSheet();
  // Tab in the page editor's text area inserts a tab instead of leaving the field.
  static const std::string& TextAreaScript();
  // A 16 x 16 folder in GIF format.
  static const std::string& FolderImage();
  // The site's icon, an SVG image (served as image/svg+xml under kIconPath).
  static const std::string& Icon();
};

