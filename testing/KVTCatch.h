// Test helpers for the module's owned-pointer exceptions.
#pragma once

#include <memory>
#include <string>

#include "frame/KVTException.h"

// Runs `body`; returns the CKVTException it threw (owned), or null when it threw none.
template <class Body>
std::unique_ptr<CKVTException> CatchKVT(Body&& body) {
  try {
    body();
  } catch (CKVTException* e) {
    return std::unique_ptr<CKVTException>(e);
  }
  return nullptr;
}
