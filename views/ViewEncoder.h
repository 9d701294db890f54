// The data manager's side of the view messages: the view list, the structure, the row
// blocks with groups and typed cells, and the lap rows, written field for field as the
// module's view decoders read them; and the reading of the view requests the module
// sends. Used by the data manager stand-in, the tests, the fuzz target and the benchmarks.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Parameters.h"
#include "frame/Types.h"
#include "views/Column.h"
#include "views/RMLapViewRow.h"

// The value of one cell as the data manager holds it; the column type decides which
// field goes on the wire.
struct ViewCellValue {
  DWORD Dword = 0;                   // types 0, 6 and 7
  int Integer = 0;                   // type 1
  double Real = 0.0;                 // type 2
  std::string Text;                  // type 3
  KVTTIME Time = KVTTIME_NULL;       // types 4 and 5
  std::vector<DWORD> Transponders;   // type 8
  BYTE Option = 0;
};

struct ViewRowValues {
  DWORD RowID = 0;
  DWORD GroupID = 0;
  WORD Status = 0xFFFF;
  std::vector<ViewCellValue> Cells;  // in column order
};

// The body of a row message: the groups it names and its rows.
struct ViewRowBlock {
  std::map<DWORD, std::string> Groups;
  std::vector<ViewRowValues> Rows;
};

// What the module asks for in 0x8021 and 0x8022.
struct ViewRequest {
  std::string Name;
  DWORD ViewID = 0;
  CParameters Parameters;
};

namespace ViewEncoder {

// Bodies.
void WriteColumn(CTTBuffer& buffer, const CColumn& column);
void WriteCell(CTTBuffer& buffer, BYTE columnType, const ViewCellValue& cell);
// Group ID, status word and one cell per column type; a type above 8 writes nothing.
void WriteRowBody(CTTBuffer& buffer, const std::vector<BYTE>& columnTypes, const ViewRowValues& row);
void WriteRowBlock(CTTBuffer& buffer, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block);
void WriteLapRowBody(CTTBuffer& buffer, const CRMLapViewRow& row);

// The column types of a structure, for the row writers.
std::vector<BYTE> ColumnTypes(const std::vector<CColumn>& columns);

// 0x8020 in: the names of the views on offer.
CModuleMessage* AllViews(const std::vector<std::string>& names);
// 0x8021 in: the structure of a view.
CModuleMessage* ViewStructure(DWORD viewID, const std::vector<CColumn>& columns);
// 0x8022 in: the data manager lets a view go.
CModuleMessage* ViewDisconnect(const std::string& name, DWORD viewID);
// 0x8024 to 0x8027.
CModuleMessage* AllRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block);
CModuleMessage* AddRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block);
CModuleMessage* ModifyRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block);
CModuleMessage* RemoveRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block);
// 0x8000 to 0x8002, keyed by the run's unique ID; each row carries its own row ID.
CModuleMessage* AllPassings(DWORD runID, const std::vector<const CRMLapViewRow*>& rows);
CModuleMessage* AddLapRow(DWORD runID, const CRMLapViewRow& row);
CModuleMessage* ModifyLapRows(DWORD runID, const std::vector<const CRMLapViewRow*>& rows);

// Reads the body of a 0x8021 or 0x8022 that the module sent.
ViewRequest ReadViewRequest(CTTBuffer& message);
// A number among a request's parameters, written as a signed or unsigned decimal (the
// low 32 bits count); `absent` when the parameter is not there.
DWORD RequestNumber(const CParameters& parameters, const std::string& name, DWORD absent);

}  // namespace ViewEncoder
