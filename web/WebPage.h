// The objects the web server hands to the module's administration pages.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/Types.h"

class CKVTHttpRequest {
 public:
  static constexpr int kMethodPost = 2;
  static constexpr const char* kFormTokenField = "formtoken";

  std::string AttributeGetValue(const std::string& name) const;
  // The form value with %XX and '+' decoded; absent and empty read the same.
  std::string FormGetValue(const std::string& name) const;

  int Method = 0;
  std::string Path;
  // The web server's anti-forgery token: every form that changes something carries it
  // back in the field kFormTokenField, and the web server refuses a POST without it.
  std::string FormToken;
  std::map<std::string, std::string> Attributes;
  // Still URL-encoded, as the browser sent it.
  std::map<std::string, std::string> Form;
};

class CKVTHttpResponse {
 public:
  void SetBody(const std::string& text);
  void SetBody(const char* bytes, DWORD size);
  void HeaderSetValue(const std::string& name, const std::string& value);
  std::string BodyText() const { return std::string(Body.begin(), Body.end()); }

  BOOL Framed = 1;
  BOOL PrinterFriendly = 0;
  int Status = 200;
  std::string PrintLink;
  std::string HeadText;
  std::vector<char> Body;
  std::map<std::string, std::string> Headers;
};

class CWebPage {
 public:
  CWebPage(void* owner, std::string title, std::string path, BOOL inMenu = 0)
      : Owner(owner), Title(std::move(title)), Path(std::move(path)), InMenu(inMenu) {}
  virtual ~CWebPage() = default;
  virtual void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) = 0;

  void* Owner;
  std::string Title;
  std::string Path;
  BOOL InMenu;
};

// The hidden field that carries the request's anti-forgery token, to put into every form
// that is sent by POST.
std::string FormTokenField(const CKVTHttpRequest& request);

// Decodes a URL-encoded form value: "%41" is 'A', '+' is a blank.
std::string DecodeFormValue(const std::string& encoded);

// True when the path has a ".." component; "/" and "\\" both separate components.
bool HasParentComponent(const std::string& path);
// True when the path has a ".." component or is absolute ("/", "\\" or a drive letter
// in front): such a path could lead out of the folder it is meant for.
bool LeavesItsFolder(const std::string& path);
// Reads a port ID as the forms and links send it: decimal digits, "-1" for none. False
// for anything else (empty, letters, a number out of range), so that a mistyped ID
// is not read as 0, which is a port's ID.
bool ParsePortID(const std::string& text, DWORD& id);
