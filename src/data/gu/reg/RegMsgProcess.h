#pragma once

#include "data/gu/reg/RegPeriodMsg.h"

#include <map>
#include <memory>

class IGuOperation;
class CRegisterManager;

/// Owns one of each of the register statistics: answers the client's start and stop requests and runs every started
/// statistic on every indication. Requests come on the main thread, indications on the UE's thread.
class CRegMsgProcess
{
public:
    static constexpr unsigned short PERIOD_MIN = 100; // ms
    static constexpr unsigned short PERIOD_MAX = 2000;

    explicit CRegMsgProcess(CRegisterManager* pRegisterManager);
    virtual ~CRegMsgProcess() = default;
    CRegMsgProcess(const CRegMsgProcess&) = delete;
    CRegMsgProcess& operator=(const CRegMsgProcess&) = delete;

    /// One sample for each started statistic, by rising request id. What is due goes to the client.
    void Process(const RegStruct& stReg, unsigned int ulTimeStamp);
    /// Sends the stored result, if there is one, and forgets it. With the statistic's mutex held.
    void Timer_BuildIndPacket(CPeriodRegMsgFromUe* pStat) REQUIRES(pStat->Mutex());
    /// Parameters of a request: byte 0 is 1 for start, 0 for stop; u16 at 2 the period of a start. An id that no
    /// statistic has gets no answer.
    void ProcessRegReqPacket(unsigned short usMsgId, ByteView data);

    CRegisterManager& Manager() const { return *m_pRegisterManager; }
    /// The statistic of a request id, or null.
    CPeriodRegMsgFromUe* Find(unsigned int ulReqMsgId) const;

private:
    unsigned int Start(CPeriodRegMsgFromUe& stat, unsigned short usPeriod, const std::vector<unsigned int>& addrs);
    unsigned int Stop(CPeriodRegMsgFromUe& stat, const std::vector<unsigned int>& addrs);
    void Answer(const CPeriodRegMsgFromUe& stat, unsigned int ulStatus);
    void Refuse(const CPeriodRegMsgFromUe& stat, unsigned int ulStatus);

    CRegisterManager* const m_pRegisterManager;
    IGuOperation* const m_pOperation; // null: no client, no UE kind
    std::map<unsigned int, std::unique_ptr<CPeriodRegMsgFromUe>>
        m_mapRegProcessor; // by request id; fixed after construction
};
