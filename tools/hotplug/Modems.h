#pragma once

#include "hotplug/Numbers.h"
#include "hotplug/Rules.h"

#include <span>

/// What becomes of a port.
enum class PORT_FATE
{
    SERVED, // the agent is told
    NO_RULE,
    CONFLICT, // another port of the modem has the role
    TOO_MANY, // the agent has no slot for the modem
};

struct PORT_ROW
{
    USB_PORT stPort;
    PORT_FATE enFate = PORT_FATE::NO_RULE;
    const HOTPLUG_RULE* pRule = nullptr; // null without one
    uint32_t ulNumber = 0;               // of a served port
    uint64_t ullVisit = 0;               // another one each time that the port comes
    std::string strOther;                // CONFLICT: node of the port that has the role
};

/// The ports that are there, in the order in which they came.
class CModems
{
public:
    /// Modems on serial ports that the agent can have at once.
    static constexpr size_t MOST = TCP_UE_INDEX;

    /// All that is there now; a port that stays keeps its place.
    void Replace(std::vector<USB_PORT> ports);
    /// A port has come, or something about one has changed.
    void Arrive(const USB_PORT& stPort);
    void Leave(const std::string& strSysPath);

    /// What becomes of each port. The first port of a modem that fits a role has it, and the first MOST modems are
    /// served. Modems that are served get their numbers.
    std::vector<PORT_ROW> Rows(const CRules& rules, CNumbers& numbers) const;

private:
    struct VISIT
    {
        USB_PORT stPort;
        uint64_t ullNumber;
    };

    VISIT* Find(const std::string& strSysPath);

    std::vector<VISIT> m_visits;
    uint64_t m_ullVisits = 0;
};

/// What whoever keeps the modems should know, a line for each thing that is wrong; bAll: ports without a rule, too.
std::vector<std::string> Complaints(std::span<const PORT_ROW> rows, bool bAll);
