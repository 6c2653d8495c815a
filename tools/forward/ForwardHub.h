#pragma once

#include "common/Bytes.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What comes from the hub. An answer carries the token of what it answers.
struct HUB_EVENT
{
    enum class KIND
    {
        CONNECTED,
        LOST,    // the connection; strText says why. Answers that are under way may never come
        PROBLEM, // strText
        LAST,    // answers AskLast
        STORED,  // answers Publish
        REFUSED, // answers either; strText says why
    };
    KIND enKind = KIND::PROBLEM;
    uint64_t ullToken = 0;
    uint64_t ullSequence = 0;            // LAST: of the message in the stream, 0 for none; STORED: of the new one
    bool bDuplicate = false;             // STORED: nothing was stored, the hub has had this id before
    std::vector<unsigned char> vecBytes; // LAST
    std::string strText;
};

/// The hub as the publisher sees it. For one thread.
class IForwardHub
{
public:
    IForwardHub() = default;
    virtual ~IForwardHub() = default;
    IForwardHub(const IForwardHub&) = delete;
    IForwardHub& operator=(const IForwardHub&) = delete;

    /// Asks for the last message of a subject. False: it can't be asked now, and no answer will come.
    [[nodiscard]] virtual bool AskLast(const std::string& strSubject, uint64_t ullToken) = 0;

    struct MESSAGE
    {
        std::string strSubject;
        std::string strId;            // Nats-Msg-Id
        uint64_t ullExpectedLast = 0; // sequence of the subject's last message, 0 for none: else it is refused
        ByteView bytes;
    };
    /// False: it can't be sent now, and no answer will come.
    [[nodiscard]] virtual bool Publish(const MESSAGE& stMessage, uint64_t ullToken) = 0;
    /// The bench's state, into the bucket; nothing tells whether it came there.
    virtual void PutState(const std::string& strJson) = 0;
    /// The next event; waits for it so long at most.
    virtual std::optional<HUB_EVENT> Wait(std::chrono::milliseconds limit) = 0;
};
