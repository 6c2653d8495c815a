#pragma once

#include "common/Types.h"
#include "uesim/LteLayout.h"

#include <string>
#include <vector>

/// Collects the command lines on an AT port, however they are cut.
class CAtCommands
{
public:
    /// The lines that these bytes end, without their ends; empty ones are left out.
    std::vector<std::string> Feed(ByteView bytes);
    void Reset() { m_strLine.clear(); }

private:
    std::string m_strLine; // what came behind the last carriage return
};

/// What requests are called in a replay, "0x10065000" or "gu 0x80B1", and which of them a modem's packet answers. An
/// AT command is called by its text; its answer is told by its place, not here.
class CReplayNames
{
public:
    explicit CReplayNames(const FILTER_CFG_STRU& stLayout) : m_layout(stLayout) {}

    /// Empty for what is no request of its own, such as a further segment of a GU request.
    std::string Request(enSerialType enPort, ByteView packet) const;
    /// Each may be answered by the packet; none for an indication.
    std::vector<std::string> AnsweredBy(enSerialType enPort, ByteView packet) const;

private:
    CLteLayout m_layout;
};
