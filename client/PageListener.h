// What a receiving session tells others besides its output folder: the viewer shows it,
// a publisher passes it on. Called on the receiving thread, in the order things came.
#pragma once

#include <map>
#include <string>

#include "client/PageAssembler.h"
#include "frame/Types.h"

namespace zolclient {

class CPageListener {
 public:
  virtual ~CPageListener() = default;
  // A good packet came.
  virtual void OnPacket() {}
  // A page other than a site's information page was complete.
  virtual void OnPage(const ReceivedPage& page) = 0;
  // A site's information page was decoded; `clock` as the site tracker holds it.
  virtual void OnSiteClock(DWORD site, const std::map<std::string, std::string>& clock) = 0;
};

}  // namespace zolclient
