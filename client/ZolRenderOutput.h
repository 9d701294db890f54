// Writing a rendered page's HTML: every text escaped for where it goes, and the whole
// rendering (a page and the pages it includes) held to one size budget.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zolclient {

// What one rendering may write, shared by a page and every page it includes.
struct ZolRenderBudget {
  static constexpr std::size_t kMaxOutput = 16 * 1024 * 1024;
  std::size_t Written = 0;
  // Set once something did not fit; from then on only end tags are written.
  bool Cut = false;
};

using ZolHtmlAttributes = std::vector<std::pair<std::string, std::string>>;

// "&", "<" and ">" as references; a NUL byte as U+FFFD.
void AppendEscapedText(std::string& out, std::string_view text);
// The same and '"', for a value written between double quotes.
void AppendEscapedAttribute(std::string& out, std::string_view value);
// Text of the page as written in its markup: references decoded and the text escaped
// again, except that a named reference other than the five of XML ("&nbsp;", "&eacute;")
// stays as it is written, so that the browser shows it.
void AppendPageText(std::string& out, std::string_view raw);
// Text for a comment: "&", "<", ">" and "-" as references, so that it cannot end the
// comment.
void AppendCommentText(std::string& out, std::string_view text);
// Text of a style sheet: "<" as the escape "\3c " of CSS, so that it cannot end the
// style element; NUL bytes left out.
void AppendStyleText(std::string& out, std::string_view text);

class CZolHtmlOutput {
 public:
  CZolHtmlOutput(std::string& out, ZolRenderBudget& budget) : m_out(out), m_budget(budget) {}
  CZolHtmlOutput(const CZolHtmlOutput&) = delete;
  CZolHtmlOutput& operator=(const CZolHtmlOutput&) = delete;
  virtual ~CZolHtmlOutput() = default;

  // False once the budget is spent.
  bool Open() const { return !m_budget.Cut; }

  // The renderer's own markup. False, with nothing written, when it does not fit.
  bool Markup(std::string_view markup);
  // Decoded text, escaped.
  bool Text(std::string_view text);
  // Text of the page as written (see AppendPageText).
  bool PageText(std::string_view raw);
  bool StyleText(std::string_view text);
  // "<!-- TEXT -->", the text escaped for a comment.
  bool Comment(std::string_view text);
  // "<name a="v"...>": the name and the attribute names must be plain names already.
  bool StartTag(std::string_view name, const ZolHtmlAttributes& attributes);
  // Written even when the budget is spent, so that every start tag written is closed.
  void EndTag(std::string_view name);
  // Markup written and counted even when the budget is spent: a wrapper around what was
  // written within it.
  void ClosingMarkup(std::string_view markup);
  // HTML that was written within the same budget (an included page's body).
  void Rendered(std::string_view html) { m_out.append(html); }

 private:
  // Appends by `write`; takes it back and cuts the rendering when the budget is passed.
  template <class Write>
  bool Within(Write write);

  std::string& m_out;
  ZolRenderBudget& m_budget;
};

}  // namespace zolclient
