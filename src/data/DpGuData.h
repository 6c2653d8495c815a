#pragma once

#include "data/DataProcessor.h"

/// A GU data client only binds: COperationGUData sends indications to it directly.
class CDataProcessorGuData : public CDataProcessor
{
public:
    CDataProcessorGuData(IBindings* pBindings, IClientPort* pClient);

    int ProcessClientData(ByteView packet) override;
    int ProcessSerialData(ByteSpan data) override;
};
