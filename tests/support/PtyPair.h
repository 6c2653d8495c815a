#pragma once

#include "common/UniqueFd.h"
#include "support/TestBytes.h"

#include <chrono>
#include <string>
#include <termios.h>

/// A pseudo terminal whose device plays a modem's port: the program under test opens Name(), the test is the modem
/// at the other end.
class CPtyPair
{
public:
    /// Raw from the start, so that nothing is echoed before the port is opened.
    CPtyPair();

    const std::string& Name() const { return m_strName; }
    /// The modem's end, for a test that reads and writes it by itself.
    const CUniqueFd& Modem() const { return m_Modem; }

    /// The modem sends.
    void Write(ByteView data);
    /// What the modem receives: szCount bytes, or fewer when no more come in time.
    Bytes Read(size_t szCount, std::chrono::milliseconds limit = std::chrono::seconds(5));
    /// What has arrived at the modem, without waiting.
    Bytes Pending() { return Read(SIZE_MAX, std::chrono::milliseconds(0)); }
    /// The modem goes away.
    void Unplug();
    /// Fills the way to the modem, as if it had stopped reading, until the port takes nothing more.
    void Clog();
    /// Settings of the terminal at this moment.
    termios Settings() const;

private:
    CUniqueFd m_Modem;
    CUniqueFd m_Port; // kept open, so that the pair outlives an opening and closing of the device
    std::string m_strName;
};
