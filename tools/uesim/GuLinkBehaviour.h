#pragma once

#include "uesim/Behaviour.h"
#include "uesim/GuLine.h"

#include <memory>
#include <vector>

/// A part of the GU side that answers requests of its own.
class IGuService
{
public:
    IGuService() = default;
    virtual ~IGuService() = default;
    IGuService(const IGuService&) = delete;
    IGuService& operator=(const IGuService&) = delete;

    /// True when the request was for this service.
    virtual bool OnRequest(const GU_REQUEST& stReq) = 0;
};

/// The GU port's door: the link request, the frames and their segments, and the queries for IMEI, version, cards and
/// mode. Hands every other request to the services.
class CGuLinkBehaviour : public IBehaviour
{
public:
    explicit CGuLinkBehaviour(CSimUe& ue) : m_ue(ue), m_line(ue) {}

    CGuLine& Line() { return m_line; }
    /// The service must live as long as this behaviour; both belong to the same UE.
    void AddService(IGuService* pService) { m_services.push_back(pService); }

    bool OnPacket(enSerialType enPort, ByteView packet) override;
    void OnPortClosed(enSerialType enPort) override;

private:
    void OnGuPacket(ByteView packet);
    bool AnswerQuery(const GU_REQUEST& stReq);
    void SendVersion();

    CSimUe& m_ue;
    CGuLine m_line;
    std::vector<IGuService*> m_services;
    std::vector<unsigned char> m_segments; // of a packet that isn't whole yet
    unsigned int m_ulNextSegment = 1;
};
