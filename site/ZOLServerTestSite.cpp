#include "site/ZOLServerTestSite.h"

#include <string>

#include "frame/KVTException.h"

CZOLTestPage::CZOLTestPage(DWORD siteId, DWORD pageNumber)
    : COutputPage(siteId, pageNumber, 3, 60, "", "testpage.html") {}

void CZOLTestPage::SetTestSize(DWORD size) {
  Guarded("CZOLTestPage::SetTestSize()", [&] {
    TestSize = size;
    static const std::string kPattern = "ZOL test page 0123456789 abcdefghijklmnopqrstuvwxyz\n";
    Data.resize(size);
    for (DWORD i = 0; i < size; ++i) Data[i] = static_cast<BYTE>(kPattern[i % kPattern.size()]);
    BuildPackets();
    NotifyPageUpdated();
  });
}

void CZOLServerTestSite::SetTestPageSize(DWORD size) {
  Guarded("CZOLServerTestSite::SetTestPageSize()", [&] {
    if (TestPage != nullptr) TestPage->SetTestSize(size);
  });
}
