// What the page editor needs to know of a file's text so that a browser's form gives
// its bytes back: whether the browser keeps them, and which line ends the file uses.
#pragma once

#include <cstddef>
#include <string>

// True for text the browser gives back unchanged: UTF-8 without NUL bytes (a browser
// puts U+FFFD in place of a NUL and of every byte that is no UTF-8).
bool IsUtf8Text(const std::string& text);

struct LineEnds {
  std::size_t Lf = 0;    // "\n" alone
  std::size_t CrLf = 0;  // "\r\n"
  std::size_t Cr = 0;    // "\r" alone
  // False when a save cannot give the file its line ends back: LF and CRLF mixed, or a
  // CR alone, which browsers turn into a line end of their own.
  bool KeptBySave() const { return Cr == 0 && (Lf == 0 || CrLf == 0); }
  // What a save writes: the file's own line end, or for a mixed file the more frequent
  // of LF and CRLF (LF on a tie).
  const char* SavedAs() const { return CrLf > Lf ? "crlf" : "lf"; }
};

LineEnds CountLineEnds(const std::string& text);

// Every line end of `text` (CRLF, LF or CR alone) becomes `lineEnd`.
std::string WithLineEnds(const std::string& text, const std::string& lineEnd);
