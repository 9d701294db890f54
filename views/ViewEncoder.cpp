#include "views/ViewEncoder.h"

#include <cstdlib>

#include "data/DataEncoder.h"
#include "data/RMData.h"
#include "views/RMCell.h"
#include "views/RMLapView.h"
#include "views/RMView.h"

namespace ViewEncoder {

void WriteColumn(CTTBuffer& buffer, const CColumn& column) {
  buffer << column.Type << column.Title << column.Key << column.Size << column.Option;
}

void WriteCell(CTTBuffer& buffer, BYTE columnType, const ViewCellValue& cell) {
  switch (columnType) {
    case kColumnDWord:
    case kColumnDate:
    case kColumnDateTime:
      buffer << cell.Dword;
      break;
    case kColumnInteger:
      buffer << cell.Integer;
      break;
    case kColumnDouble:
      buffer << cell.Real;
      break;
    case kColumnString:
      buffer << cell.Text;
      break;
    case kColumnKVTTime:
    case kColumnKVTDiff:
      buffer << cell.Time;
      break;
    case kColumnTransponder:
      buffer << static_cast<int>(cell.Transponders.size()) << cell.Option;
      for (DWORD transponder : cell.Transponders) buffer << transponder << static_cast<BYTE>(0);
      return;
    default:
      return;  // a type without a cell class has no wire form
  }
  buffer << cell.Option;
}

void WriteRowBody(CTTBuffer& buffer, const std::vector<BYTE>& columnTypes, const ViewRowValues& row) {
  buffer << row.GroupID << row.Status;
  const ViewCellValue empty;
  for (std::size_t i = 0; i < columnTypes.size(); ++i) {
    WriteCell(buffer, columnTypes[i], i < row.Cells.size() ? row.Cells[i] : empty);
  }
}

void WriteRowBlock(CTTBuffer& buffer, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block) {
  buffer << static_cast<DWORD>(block.Groups.size());
  for (const auto& [id, name] : block.Groups) buffer << id << name;
  buffer << static_cast<DWORD>(block.Rows.size());
  for (const ViewRowValues& row : block.Rows) {
    buffer << row.RowID;
    WriteRowBody(buffer, columnTypes, row);
  }
}

void WriteLapRowBody(CTTBuffer& buffer, const CRMLapViewRow& row) {
  buffer << row.CompetitorID << row.SecondID << row.Status << row.Flags << row.Word4 << row.Word5 << row.Time1
         << row.PassingTime << row.Time3 << row.Time4 << row.Word1 << row.Word2 << row.Byte3;
}

std::vector<BYTE> ColumnTypes(const std::vector<CColumn>& columns) {
  std::vector<BYTE> types;
  types.reserve(columns.size());
  for (const CColumn& column : columns) types.push_back(column.Type);
  return types;
}

CModuleMessage* AllViews(const std::vector<std::string>& names) {
  CModuleMessage* message = DataEncoder::NewMessage(kMsgAllViews);
  DataEncoder::WriteStringList(*message, names);
  return message;
}

CModuleMessage* ViewStructure(DWORD viewID, const std::vector<CColumn>& columns) {
  CModuleMessage* message = DataEncoder::NewMessage(kMsgViewConnect);
  *message << viewID << static_cast<int>(columns.size());
  for (const CColumn& column : columns) WriteColumn(*message, column);
  return message;
}

CModuleMessage* ViewDisconnect(const std::string& name, DWORD viewID) {
  CModuleMessage* message = DataEncoder::NewMessage(kMsgViewDisconnect);
  *message << name << viewID;
  return message;
}

namespace {

CModuleMessage* RowMessage(WORD id, DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block) {
  CModuleMessage* message = DataEncoder::NewMessage(id);
  *message << viewID;
  WriteRowBlock(*message, columnTypes, block);
  return message;
}

}  // namespace

CModuleMessage* AllRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block) {
  return RowMessage(kMsgAllRows, viewID, columnTypes, block);
}

CModuleMessage* AddRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block) {
  return RowMessage(kMsgAddRows, viewID, columnTypes, block);
}

CModuleMessage* ModifyRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block) {
  return RowMessage(kMsgModifyRows, viewID, columnTypes, block);
}

CModuleMessage* RemoveRows(DWORD viewID, const std::vector<BYTE>& columnTypes, const ViewRowBlock& block) {
  return RowMessage(kMsgRemoveRows, viewID, columnTypes, block);
}

CModuleMessage* AllPassings(DWORD runID, const std::vector<const CRMLapViewRow*>& rows) {
  CModuleMessage* message = DataEncoder::NewMessage(kMsgAllPassings);
  *message << runID << static_cast<int>(rows.size());
  for (const CRMLapViewRow* row : rows) {
    *message << row->RowID;
    WriteLapRowBody(*message, *row);
  }
  return message;
}

CModuleMessage* AddLapRow(DWORD runID, const CRMLapViewRow& row) {
  CModuleMessage* message = DataEncoder::NewMessage(kMsgAddLapRow);
  *message << runID << row.RowID;
  WriteLapRowBody(*message, row);
  return message;
}

CModuleMessage* ModifyLapRows(DWORD runID, const std::vector<const CRMLapViewRow*>& rows) {
  CModuleMessage* message = DataEncoder::NewMessage(kMsgModifyLapRows);
  *message << runID << static_cast<int>(rows.size());
  for (const CRMLapViewRow* row : rows) {
    *message << row->RowID;
    WriteLapRowBody(*message, *row);
  }
  return message;
}

ViewRequest ReadViewRequest(CTTBuffer& message) {
  ViewRequest request;
  message >> request.Name >> request.ViewID;
  request.Parameters.BufferToParameters(message);
  return request;
}

DWORD RequestNumber(const CParameters& parameters, const std::string& name, DWORD absent) {
  const std::string text = parameters.GetString(name);
  if (text.empty()) return absent;
  return static_cast<DWORD>(std::strtoll(text.c_str(), nullptr, 10));
}

}  // namespace ViewEncoder
