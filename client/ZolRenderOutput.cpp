#include "client/ZolRenderOutput.h"

#include "frame/KVTException.h"
#include "site/xml/XmlText.h"

namespace zolclient {

namespace {

constexpr const char* kReplacementCharacter = "\xEF\xBF\xBD";

bool IsAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// The length of the named reference "&name;" at `at`, or 0 when there is none there or
// it is one of the five that XML decodes itself.
std::size_t KeptReferenceLength(std::string_view text, std::size_t at) {
  constexpr std::size_t kLongestName = 32;
  std::size_t p = at + 1;
  if (p >= text.size() || !IsAsciiLetter(text[p])) return 0;
  while (p < text.size() && p - at <= kLongestName && (IsAsciiLetter(text[p]) || IsAsciiDigit(text[p]))) ++p;
  if (p >= text.size() || text[p] != ';') return 0;
  const std::string_view name = text.substr(at + 1, p - at - 1);
  if (name == "lt" || name == "gt" || name == "amp" || name == "apos" || name == "quot") return 0;
  return p + 1 - at;
}

void AppendDecodedEscaped(std::string& out, std::string_view raw) {
  if (raw.empty()) return;
  AppendEscapedText(out, XmlDecode(raw.data(), raw.size()));
}

}  // namespace

void AppendEscapedText(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '\0': out += kReplacementCharacter; break;
      default: out += c;
    }
  }
}

void AppendEscapedAttribute(std::string& out, std::string_view value) {
  for (const char c : value) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\0': out += kReplacementCharacter; break;
      default: out += c;
    }
  }
}

void AppendPageText(std::string& out, std::string_view raw) {
  std::size_t start = 0;
  for (std::size_t at = raw.find('&'); at != std::string_view::npos; at = raw.find('&', at + 1)) {
    const std::size_t kept = KeptReferenceLength(raw, at);
    if (kept == 0) continue;
    AppendDecodedEscaped(out, raw.substr(start, at - start));
    out.append(raw.substr(at, kept));
    start = at + kept;
    at = start - 1;
  }
  AppendDecodedEscaped(out, raw.substr(start));
}

void AppendCommentText(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '-': out += "&#45;"; break;
      case '\0': out += kReplacementCharacter; break;
      default: out += c;
    }
  }
}

void AppendStyleText(std::string& out, std::string_view text) {
  for (const char c : text) {
    if (c == '<') {
      out += "\\3c ";
    } else if (c != '\0') {
      out += c;
    }
  }
}

template <class Write>
bool CZolHtmlOutput::Within(Write write) {
  if (m_budget.Cut) return false;
  const std::size_t before = m_out.size();
  write();
  const std::size_t added = m_out.size() - before;
  if (m_budget.Written <= ZolRenderBudget::kMaxOutput && added <= ZolRenderBudget::kMaxOutput - m_budget.Written) {
    m_budget.Written += added;
    return true;
  }
  m_out.resize(before);
  m_budget.Cut = true;
  m_out += "<!-- the rest is left out: the page would be longer than ";
  m_out += std::to_string(ZolRenderBudget::kMaxOutput);
  m_out += " bytes -->";
  return false;
}

bool CZolHtmlOutput::Markup(std::string_view markup) {
  return Guarded("CZolHtmlOutput::Markup()", [&] { return Within([&] { m_out.append(markup); }); });
}

bool CZolHtmlOutput::Text(std::string_view text) {
  return Guarded("CZolHtmlOutput::Text()", [&] { return Within([&] { AppendEscapedText(m_out, text); }); });
}

bool CZolHtmlOutput::PageText(std::string_view raw) {
  return Guarded("CZolHtmlOutput::PageText()", [&] { return Within([&] { AppendPageText(m_out, raw); }); });
}

bool CZolHtmlOutput::StyleText(std::string_view text) {
  return Guarded("CZolHtmlOutput::StyleText()", [&] { return Within([&] { AppendStyleText(m_out, text); }); });
}

bool CZolHtmlOutput::Comment(std::string_view text) {
  return Guarded("CZolHtmlOutput::Comment()", [&] {
    return Within([&] {
      m_out += "<!-- ";
      AppendCommentText(m_out, text);
      m_out += " -->";
    });
  });
}

bool CZolHtmlOutput::StartTag(std::string_view name, const ZolHtmlAttributes& attributes) {
  return Guarded("CZolHtmlOutput::StartTag()", [&] {
    return Within([&] {
      m_out += '<';
      m_out += name;
      for (const auto& [attribute, value] : attributes) {
        m_out += ' ';
        m_out += attribute;
        m_out += "=\"";
        AppendEscapedAttribute(m_out, value);
        m_out += '"';
      }
      m_out += '>';
    });
  });
}

void CZolHtmlOutput::EndTag(std::string_view name) {
  Guarded("CZolHtmlOutput::EndTag()", [&] {
    m_out += "</";
    m_out += name;
    m_out += '>';
    m_budget.Written += name.size() + 3;
  });
}

void CZolHtmlOutput::ClosingMarkup(std::string_view markup) {
  Guarded("CZolHtmlOutput::ClosingMarkup()", [&] {
    m_out.append(markup);
    m_budget.Written += markup.size();
  });
}

}  // namespace zolclient
