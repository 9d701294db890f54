#include "site/FlagText.h"

#include "frame/KVTException.h"

std::string FlagToString(DWORD flag, DWORD special) {
  return Guarded("FlagToString()", [&]() -> std::string {
    switch (special) {
      case 0: break;
      case 1: return "white";
      case 2: return "finish";
      case 3: return "cold";
      default: return "none";
    }
    switch (flag) {
      case 0: return "warmup";
      case 1: return "green";
      case 2: return "yellow";
      case 3: return "yellownc";
      case 4: return "red";
      default: return "none";
    }
  });
}
