#pragma once

#include "data/DataProcessor.h"

/// The door of a GU command client to the GU stack of its UE. Nothing comes from the serial side: the agent hands
/// GU packets to COperationGUData, which answers the client by itself.
class CDataProcessorGuCmd : public CDataProcessor
{
public:
    CDataProcessorGuCmd(IBindings* pBindings, IClientPort* pClient);

    int ProcessClientData(ByteView packet) override;
    int ProcessSerialData(ByteSpan data) override;
};
