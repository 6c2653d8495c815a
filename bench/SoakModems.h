#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

/// A modem that is attached, confirmed, streams a little, vanishes with all its ports and comes back as another one.
class CVanishingModem
{
public:
    CVanishingModem(unsigned int ulFirstPort, std::string strGroup, std::chrono::milliseconds cycle)
        : m_ulFirstPort(ulFirstPort), m_strGroup(std::move(strGroup)), m_cycle(cycle)
    {
    }
    /// One life of it.
    void Live();

    unsigned int Lives() const { return m_ulLives; }
    unsigned int Confirmed() const { return m_ulConfirmed; }

private:
    unsigned int m_ulFirstPort;
    std::string m_strGroup;
    std::chrono::milliseconds m_cycle; // of a life
    std::atomic<unsigned int> m_ulLives = 0;
    std::atomic<unsigned int> m_ulConfirmed = 0;
};

/// A modem that attaches its diag port, is confirmed, and detaches again without having vanished.
class CBootLoop
{
public:
    explicit CBootLoop(unsigned int ulFirstPort) : m_ulFirstPort(ulFirstPort) {}
    void Boot();

    unsigned int Boots() const { return m_ulBoots; }
    unsigned int Confirmed() const { return m_ulConfirmed; }

private:
    unsigned int m_ulFirstPort;
    std::atomic<unsigned int> m_ulBoots = 0;
    std::atomic<unsigned int> m_ulConfirmed = 0;
};
