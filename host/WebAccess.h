// The web server's checks on a request before it reaches a module: basic authentication,
// the origin of a form, paths that would leave the module's folder, and the reading of
// query strings and form bodies.
#pragma once

#include <map>
#include <string>

struct WebCredentials {
  std::string User;
  std::string Password;
};

class CWebAccess {
 public:
  // Reads the first line of a password file, "user:password" (a user without ':' and a
  // password of at least one character); false with a one-line reason.
  static bool ParseCredentials(const std::string& fileText, WebCredentials& credentials, std::string& error);
  // True when an "Authorization" header value gives exactly these credentials.
  static bool Authorized(const std::string& authorization, const WebCredentials& credentials);
  // Compares without stopping at the first difference, so that the time of a refusal does
  // not tell how much of a secret was right.
  static bool EqualInConstantTime(const std::string& a, const std::string& b);

  // "scheme://host[:port]" of a URL, lower case; empty when the text is no absolute URL.
  static std::string OriginOf(const std::string& url);
  // True when the Origin header (or, without one, the Referer) names the origin the
  // request was sent to (`scheme`, "://" and the Host header); true when the request has
  // neither, as programs other than browsers send it.
  static bool SameOrigin(const std::string& origin, const std::string& referer, const std::string& host,
                         const std::string& scheme = "http");
  // True when the Host header names this machine's loopback interface ("localhost",
  // 127.x.x.x or [::1], with or without a port).
  static bool LoopbackHost(const std::string& host);

  // True when a decoded request path holds a ".." component ("/" and "\\" both separate
  // components) or a byte below 0x20.
  static bool UnsafePath(const std::string& path);

  // Decodes %XX escapes (and '+' as a blank when `plusIsBlank`); an escape that is not
  // two hexadecimal digits stays as it stands.
  static std::string Decode(const std::string& text, bool plusIsBlank);
  // The name=value pairs of a query string or form body. Names are decoded; values are
  // decoded when `decodeValues`, else kept as sent. A later pair of the same name wins;
  // pairs without a name are left out.
  static std::map<std::string, std::string> ParsePairs(const std::string& text, bool decodeValues);
};
