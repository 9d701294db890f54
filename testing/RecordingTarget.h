// A send target for tests: keeps every message the module sends, in order.
#pragma once

#include <memory>
#include <vector>

#include "frame/BaseModule.h"

class RecordingTarget : public CSendTarget {
 public:
  void SendFunction(CModuleMessage* message) override { Sent.emplace_back(message); }

  // The messages sent with this ID, in order.
  std::vector<CModuleMessage*> WithID(WORD id) const {
    std::vector<CModuleMessage*> found;
    for (const auto& message : Sent) {
      if (message->ID == id) found.push_back(message.get());
    }
    return found;
  }

  std::vector<std::unique_ptr<CModuleMessage>> Sent;
};
