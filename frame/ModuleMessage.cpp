#include "frame/ModuleMessage.h"

#include "frame/BaseModule.h"

CModuleMessage::CModuleMessage(WORD id, WORD targetClass, DWORD targetInstance, DWORD targetComputer)
    : CTTBuffer(1024), ID(id), TargetClass(targetClass), TargetInstance(targetInstance), TargetComputer(targetComputer) {}

CModuleMessage::CModuleMessage(WORD id, const CBaseModule* module)
    : CModuleMessage(id, module->ConnectedClass, module->ConnectedInstance, module->ConnectedComputer) {}
