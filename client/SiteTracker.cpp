#include "client/SiteTracker.h"

#include <sstream>
#include <utility>

#include "frame/KVTException.h"

namespace zolclient {

namespace {

std::string ValueOr(const std::map<std::string, std::string>& entries, const std::string& key,
                    const std::string& missing) {
  const auto found = entries.find(key);
  return found == entries.end() ? missing : PrintableText(found->second);
}

}  // namespace

namespace {

void AppendHex(std::string& shown, unsigned char u) {
  static const char kHex[] = "0123456789abcdef";
  shown += "\\x";
  shown += kHex[u >> 4];
  shown += kHex[u & 0xF];
}

// The length of the well-formed UTF-8 sequence at `at` and its code point, or 0.
std::size_t Utf8Sequence(const std::string& text, std::size_t at, unsigned& codePoint) {
  const unsigned char lead = static_cast<unsigned char>(text[at]);
  std::size_t length = 0;
  unsigned lowest = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    codePoint = lead & 0x1F;
    lowest = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    codePoint = lead & 0x0F;
    lowest = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    codePoint = lead & 0x07;
    lowest = 0x10000;
  } else {
    return 0;
  }
  if (text.size() - at < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return 0;
    codePoint = (codePoint << 6) | (next & 0x3F);
  }
  if (codePoint < lowest || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return 0;
  return length;
}

}  // namespace

std::string PrintableText(const std::string& text) {
  std::string shown;
  std::size_t at = 0;
  while (at < text.size()) {
    const unsigned char u = static_cast<unsigned char>(text[at]);
    if (u < 0x20 || u == 0x7F) {
      AppendHex(shown, u);
      ++at;
      continue;
    }
    if (u < 0x80) {
      shown += text[at++];
      continue;
    }
    unsigned codePoint = 0;
    const std::size_t length = Utf8Sequence(text, at, codePoint);
    if (length > 0) {
      for (std::size_t i = 0; i < length; ++i) {
        if (codePoint <= 0x9F) {
          AppendHex(shown, static_cast<unsigned char>(text[at + i]));
        } else {
          shown += text[at + i];
        }
      }
      at += length;
      continue;
    }
    if (u <= 0x9F) {
      AppendHex(shown, u);
    } else {
      shown += text[at];
    }
    ++at;
  }
  return shown;
}

void CSiteTracker::NoteSite(DWORD site) {
  Guarded("CSiteTracker::NoteSite()", [&] { States[site]; });
}

InformationOutcome CSiteTracker::OnInformationPage(DWORD site, const std::vector<BYTE>& data, std::string* reason) {
  return Guarded("CSiteTracker::OnInformationPage()", [&] {
    SiteState& state = States[site];
    SiteInformation information;
    std::string why;
    if (!DecodeSiteInformation(data.data(), data.size(), information, &why)) {
      ++state.BadInformationPages;
      state.LastBadReason = why;
      if (reason != nullptr) *reason = why;
      return InformationOutcome::NotInformation;
    }
    return OnDecodedInformation(site, std::move(information));
  });
}

InformationOutcome CSiteTracker::OnDecodedInformation(DWORD site, SiteInformation information) {
  return Guarded("CSiteTracker::OnDecodedInformation()", [&] {
    SiteState& state = States[site];
    ++state.InformationPages;
    InformationOutcome outcome = InformationOutcome::SameBuild;
    if (!state.HasInformation) {
      outcome = InformationOutcome::FirstSeen;
    } else if (state.BuildTime != information.BuildTime) {
      outcome = InformationOutcome::Rebuilt;
      ++state.Rebuilds;
      state.HasSiteParameters = false;
      state.SiteParameters.clear();
      state.CompletePages.clear();
    }
    state.HasInformation = true;
    state.BuildTime = information.BuildTime;
    state.Clock = std::move(information.Clock);
    if (information.HasSiteParameters) {
      state.HasSiteParameters = true;
      state.SiteParameters = std::move(information.SiteParameters);
    }
    return outcome;
  });
}

void CSiteTracker::OnContentPage(DWORD site, DWORD pageNumber) {
  Guarded("CSiteTracker::OnContentPage()", [&] {
    if (pageNumber == 0) return;
    States[site].CompletePages.insert(pageNumber);
  });
}

bool CSiteTracker::IsComplete(DWORD site) const {
  return Guarded("CSiteTracker::IsComplete()", [&] {
    const auto found = States.find(site);
    if (found == States.end()) return false;
    const SiteState& state = found->second;
    if (!state.HasInformation || !state.HasSiteParameters) return false;
    const std::optional<std::size_t> count = SitePageCount(state.SiteParameters);
    return count.has_value() && state.CompletePages.size() >= *count;
  });
}

bool CSiteTracker::AllSitesComplete() const {
  return Guarded("CSiteTracker::AllSitesComplete()", [&] {
    if (States.empty()) return false;
    for (const auto& [site, state] : States) {
      if (!IsComplete(site)) return false;
    }
    return true;
  });
}

std::vector<std::string> CSiteTracker::Shortfalls() const {
  return Guarded("CSiteTracker::Shortfalls()", [&] {
    std::vector<std::string> texts;
    if (States.empty()) texts.push_back("no site seen");
    for (const auto& [site, state] : States) {
      if (IsComplete(site)) continue;
      const std::string name = "site " + std::to_string(site) + ": ";
      if (!state.HasInformation) {
        texts.push_back(name + "no information page");
      } else if (!state.HasSiteParameters) {
        texts.push_back(name + "no site parameters since its build time");
      } else if (!SitePageCount(state.SiteParameters).has_value()) {
        texts.push_back(name + "no page count in its site parameters");
      } else {
        texts.push_back(name + std::to_string(state.CompletePages.size()) + " of " +
                        std::to_string(*SitePageCount(state.SiteParameters)) + " pages complete");
      }
    }
    return texts;
  });
}

std::string CSiteTracker::StatsLines() const {
  return Guarded("CSiteTracker::StatsLines()", [&] {
    std::ostringstream text;
    for (const auto& [site, state] : States) {
      text << "site " << site << ":";
      if (!state.HasInformation) {
        text << " no information page, pages complete " << state.CompletePages.size() << ", bad information pages "
             << state.BadInformationPages << "\n";
        continue;
      }
      text << " name " << ValueOr(state.SiteParameters, "name", "?") << ", pagecount "
           << ValueOr(state.SiteParameters, "pagecount", "?") << ", pages complete " << state.CompletePages.size()
           << ", build time " << state.BuildTime << ", information pages " << state.InformationPages << ", bad "
           << state.BadInformationPages << ", rebuilds " << state.Rebuilds << ", flag "
           << ValueOr(state.Clock, "flag", "?") << ", racetime " << ValueOr(state.Clock, "racetime", "?")
           << ", timeofday " << ValueOr(state.Clock, "timeofday", "?") << ", timetogo "
           << ValueOr(state.Clock, "timetogo", "?") << "\n";
    }
    return text.str();
  });
}

std::string CSiteTracker::InformationFileText(DWORD site) const {
  return Guarded("CSiteTracker::InformationFileText()", [&] {
    const auto found = States.find(site);
    if (found == States.end() || !found->second.HasInformation) return std::string();
    const SiteState& state = found->second;
    std::ostringstream text;
    text << "site=" << site << "\n";
    text << "buildtime=" << state.BuildTime << "\n";
    for (const auto& [key, value] : state.Clock) text << "clock." << PrintableText(key) << "=" << PrintableText(value) << "\n";
    for (const auto& [key, value] : state.SiteParameters) {
      text << "site." << PrintableText(key) << "=" << PrintableText(value) << "\n";
    }
    text << "pagescomplete=" << state.CompletePages.size() << "\n";
    return text.str();
  });
}

}  // namespace zolclient
