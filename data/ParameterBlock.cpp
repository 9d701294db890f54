#include "data/ParameterBlock.h"

#include "frame/KVTException.h"

void ReadParameterBlock(CTTBuffer& buffer, ParameterTable& table) {
  Guarded("CParameters::BufferToParameters()", [&] {
    int count = 0;
    buffer >> count;
    for (int i = 0; i < count; ++i) {
      std::string name;
      std::string value;
      buffer >> name >> value;
      table[name] = value;
    }
  });
}

void WriteParameterBlock(CTTBuffer& buffer, const ParameterTable& table) {
  Guarded("CParameters::ParametersToBuffer()", [&] {
    buffer << static_cast<int>(table.size());
    for (const auto& [name, value] : table) buffer << name << value;
  });
}
