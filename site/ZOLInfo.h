// A zol_label of a page template: one live value of the run information view (the run's
// name, the leader, the flag), or a fixed value of the event, written back into the tag
// the author wrote.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "frame/Parameters.h"
#include "frame/Types.h"
#include "site/ZOLLiveObservers.h"
#include "views/RMViewObserver.h"

class CRMComm;
class CRMView;

class CZOLInfo : public CRMViewObserver, public CZOLInfoSubject {
 public:
  CZOLInfo(long id, int eventId, CRMComm* comm);
  ~CZOLInfo() override;

  // Reads a zol_label element; text that is no label is kept as fixed text. 0 for a
  // label of an unknown type.
  BOOL ZOLImport(const std::string& text);
  // The tag as written in the template holding the current value; empty for fixed text.
  std::string ZOLExport();
  // What a browser shows: the clock value of the four clock labels, the text of others.
  std::string HTMLExport(const CParameters& clockParameters);
  // The legend of a merge's members, as HTML; empty for an unknown merge.
  std::string GetMergeLegenda(DWORD id) const;
  // Binds the label to the run information view of the run; nothing for -1.
  void Import(int runId);
  void MergeConnect(DWORD id);

  void OnNotifyStructure(CRMView* view) override;
  // Exports and tells the pages only when the value really changed.
  void OnNotifyData(int type, CRMView* view) override;
  void OnSubjectRemoved(CRMView* view) override;
  void NotifyDataAvailable() { NotifyInfoObservers(this); }

  long GetId() const { return m_id; }
  const std::string& GetText() const { return m_text; }
  const std::string& GetColumnKey() const { return m_columnKey; }
  CRMView* GetView() const { return m_view; }

 private:
  std::string m_text;
  std::string m_source;
  std::string m_lastExport;
  // The last value a view gave: shown once the view is gone with the data manager, so
  // that a page keeps its values instead of the label's tag.
  std::optional<std::string> m_lastViewValue;
  std::string m_viewName = "lgView_RunInfo";
  std::string m_columnKey;
  int m_column = -1;
  int m_flagColumn = -1;
  int m_flagSpecialColumn = -1;
  long m_id;
  CRMComm* m_comm;
  CRMView* m_view = nullptr;
  std::map<std::string, std::string> m_columnLabels;
  std::map<std::string, std::string> m_staticLabels;
};
