#pragma once

#include "data/DataProcessor.h"

#include <array>

/// Connects a client to the AT port of its UE. The client sends plain text, as a terminal does, or framed commands;
/// text from the UE goes to it framed, unsolicited lines marked by their id.
class CDataProcessorAt : public CDataProcessor
{
public:
    static constexpr size_t LINE_LEN = 4096; // bytes kept of a line, without its carriage return

    CDataProcessorAt(IBindings* pBindings, IClientPort* pClient);

    /// A framed packet, lead bytes stripped, or raw text: whatever doesn't begin with the id of a command of this
    /// channel. Raw text ends at its first NUL.
    int ProcessClientData(ByteView packet) override;
    int ProcessSerialData(ByteSpan data) override;

    /// Sends the text to the bound UE as it stands.
    void ProcessAtCmd(ByteView text);

private:
    void TakeRawText(ByteView text);

    std::array<unsigned char, LINE_LEN + 1> m_acLine{}; // raw text up to its carriage return, with room for that
    unsigned short m_usLineLen = 0;
};
