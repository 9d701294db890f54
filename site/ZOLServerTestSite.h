// A site that can carry a test page of a chosen size, to measure what a port can carry.
#pragma once

#include "distribution/OutputPage.h"
#include "site/ZOLServerSite.h"

// A plain page of `size` bytes of a repeating, recognisable text.
class CZOLTestPage : public COutputPage {
 public:
  CZOLTestPage(DWORD siteId, DWORD pageNumber);
  // New content of exactly `size` bytes, a new version and a notice to the observers.
  void SetTestSize(DWORD size);
  DWORD GetTestSize() const { return TestSize; }

 private:
  DWORD TestSize = 0;
};

class CZOLServerTestSite : public CZOLServerSite {
 public:
  using CZOLServerSite::CZOLServerSite;
  // The page that SetTestPageSize resizes; the site does not own it.
  void SetTestPage(CZOLTestPage* page) { TestPage = page; }
  // Resizes the test page when there is one; does nothing otherwise.
  void SetTestPageSize(DWORD size);

 private:
  CZOLTestPage* TestPage = nullptr;
};
