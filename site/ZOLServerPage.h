// A page made from a .zol template: literal chunks of the template and the live objects
// that stand in for its special tags. Each time something has changed it rebuilds the
// text that goes on the wire; COutputPage delivers that text.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "distribution/OutputPage.h"
#include "frame/Types.h"
#include "site/ZOLLiveObservers.h"

class CParameters;
class CRMComm;
class CZOLInfo;
class CZOLServerInclude;
class CZOLServerTable;

class CZOLServerPage : public COutputPage, public CZOLServerTableObserver, public CZOLInfoObserver {
 public:
  CZOLServerPage(DWORD siteId, DWORD pageNumber, DWORD level, DWORD repeat, const std::string& path,
                 const std::string& file);
  ~CZOLServerPage() override;

  // Reads the template (from `content`, or from the file under `rootDir` when it is
  // empty) and builds the chunks. 1, or 0 when the file can't be read. With `runId` -1 a
  // table takes the active run: `activeRunId`, or the data's when that is -1 too (a run
  // change is told before the data's active run follows).
  BOOL Initialize(CRMComm* comm, int eventId, const std::string& rootDir, int runId, const std::string& content,
                  int activeRunId = -1);
  void Clear();

  void ZOLImport(const std::string& text);
  std::string ZOLParseTag(const std::string& name, const std::string& text);
  std::string ZOLImportResultsTemplate(const std::string& text);
  std::string ZOLImportInclude(const std::string& text);
  std::string ZOLImportInfo(const std::string& text);

  // The wire text into the page's data: declaration, root tag, chunks, end tag, zero byte.
  virtual void ZOLExport();
  std::string HTMLExport(const CParameters& clockParameters);
  void AddLinksToQueue(std::deque<std::string>& queue) const;
  // Once no live object is still waiting for its first data, the page is due for a new
  // export and tells the site; the export itself waits for the site's next tick.
  void CheckWaiting();
  void OnTableUpdated(CZOLServerTable* table) override;
  void OnInfoUpdated(CZOLInfo* label) override;
  // Writes the page if a live object changed since the last export; true when it did.
  bool ExportIfDue();
  void SetFileChanged(DWORD flag);

  const std::vector<std::string>& GetChunks() const { return m_chunks; }
  const std::vector<std::string>& GetLinks() const { return m_links; }
  const std::map<long, CZOLServerInclude*>& GetIncludes() const { return m_includes; }
  const std::map<long, CZOLServerTable*>& GetTables() const { return m_tables; }
  const std::map<long, CZOLInfo*>& GetLabels() const { return m_labels; }
  const std::vector<CZOLServerTable*>& GetWaitingTables() const { return m_waitingTables; }
  const std::vector<CZOLInfo*>& GetWaitingLabels() const { return m_waitingLabels; }
  bool IsExportDue() const { return m_exportDue; }
  // True while a table or label has not yet had its first data.
  bool IsWaiting() const { return !m_waitingTables.empty() || !m_waitingLabels.empty(); }
  // True when the page was read without a run of its own and a table on it asked for the
  // active run: it moves to the next active run with the run-bound pages.
  bool FollowsActiveRun() const { return m_followsActiveRun; }
  const std::string& GetVersion() const { return m_version; }
  const std::string& GetPageIdText() const { return m_pageId; }
  const std::string& GetType() const { return m_type; }
  const std::string& GetPageType() const { return m_pageType; }
  DWORD GetRefresh() const { return m_refresh; }
  int GetEventId() const { return m_eventId; }
  int GetRunId() const { return m_runId; }
  DWORD GetFileChanged() const { return m_fileChanged; }
  BOOL GetInitialVersion() const { return InitialVersion; }

 private:
  using TagHandler = std::string (CZOLServerPage::*)(const std::string&);

  void ReadRootAttributes(const std::string& text, bool& found);
  void DeleteLiveObjects();
  // Appends what a chunk stands for: literal text as it is, a marker as its object's text.
  template <class TableText, class LabelText, class IncludeText>
  void ExportChunk(const std::string& chunk, std::string& out, TableText tableText, LabelText labelText,
                   IncludeText includeText);

  // The root attributes live in the fields that COutputPage keeps for this page.
  std::string& m_version = DerivedText1;
  std::string& m_pageId = DerivedText2;
  std::string& m_type = DerivedText3;
  std::string& m_pageType = DerivedText4;
  DWORD& m_refresh = DerivedValue;
  int m_eventId = -1;
  int m_runId = -1;
  long m_nextTableId = 0;
  long m_nextLabelId = 0;
  long m_nextIncludeId = 0;
  DWORD m_importing = 0;
  bool m_followsActiveRun = false;
  int m_activeRunId = -1;
  DWORD m_fileChanged = 0;
  // Set when a live object changed; cleared by the export.
  bool m_exportDue = false;
  CRMComm* m_comm = nullptr;
  std::map<long, CZOLServerTable*> m_tables;
  std::map<long, CZOLInfo*> m_labels;
  std::map<long, CZOLServerInclude*> m_includes;
  std::map<std::string, TagHandler> m_tagHandlers;
  std::vector<std::string> m_chunks;
  std::vector<std::string> m_links;
  std::vector<CZOLServerTable*> m_waitingTables;
  std::vector<CZOLInfo*> m_waitingLabels;
};
