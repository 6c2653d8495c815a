#include "forward/NatsHub.h"

#include "fleet/FleetFormat.h"

#include <charconv>
#include <nlohmann/json.hpp>

namespace
{
using JSON = nlohmann::json;
constexpr char ASKED_LAST = 'L';
constexpr char ASKED_STORE = 'S';
constexpr const char* NO_STREAM = "the hub has no stream for it, or is without a leader (vex-fleet init makes it)";

std::string Header(natsMsg& msg, const char* pszName)
{
    const char* pszValue = nullptr;
    return natsMsgHeader_Get(&msg, pszName, &pszValue) == NATS_OK && pszValue != nullptr ? pszValue : "";
}

uint64_t Number(std::string_view strText)
{
    uint64_t ullNumber = 0;
    (void)std::from_chars(strText.data(), strText.data() + strText.size(), ullNumber); // what is none stays 0
    return ullNumber;
}

NatsMsg MakeMessage(const std::string& strSubject, const std::string& strReply, ByteView bytes)
{
    natsMsg* pMsg = nullptr;
    (void)natsMsg_Create(&pMsg, strSubject.c_str(), strReply.c_str(), reinterpret_cast<const char*>(bytes.data()),
                         static_cast<int>(bytes.size())); // null when memory is short
    return NatsMsg(pMsg);
}

HUB_EVENT Refusal(const std::string& strText)
{
    return {.enKind = HUB_EVENT::KIND::REFUSED, .vecBytes = {}, .strText = strText};
}
} // namespace

HUB_EVENT ReadLastAnswer(natsMsg& msg)
{
    const std::string strStatus = Header(msg, "Status");
    HUB_EVENT event{.enKind = HUB_EVENT::KIND::LAST, .vecBytes = {}, .strText = {}};
    if (strStatus == "404")
        return event; // no such message
    event.ullSequence = Number(Header(msg, "Nats-Sequence"));
    if (strStatus == "503")
        return Refusal(NO_STREAM);
    if (!strStatus.empty() || event.ullSequence == 0)
        return Refusal("an answer without a sequence, status " + strStatus + ' ' + Header(msg, "Description"));
    const auto* const pData = reinterpret_cast<const unsigned char*>(natsMsg_GetData(&msg));
    event.vecBytes.assign(pData, pData + natsMsg_GetDataLength(&msg));
    return event;
}

HUB_EVENT ReadStoredAnswer(natsMsg& msg)
{
    if (Header(msg, "Status") == "503")
        return Refusal(NO_STREAM);
    const JSON json = JSON::parse(std::string(natsMsg_GetData(&msg), static_cast<size_t>(natsMsg_GetDataLength(&msg))),
                                  nullptr, false);
    if (!json.is_object())
        return Refusal("an answer that can't be read");
    if (const auto error = json.find("error"); error != json.end())
        return Refusal(error->is_object() ? error->value("description", "an error") : "an error");
    const auto sequence = json.find("seq");
    if (sequence == json.end() || !sequence->is_number_unsigned())
        return Refusal("an answer without a sequence");
    return {.enKind = HUB_EVENT::KIND::STORED,
            .ullSequence = sequence->get<uint64_t>(),
            .bDuplicate = json.contains("duplicate") && json["duplicate"] == true,
            .vecBytes = {},
            .strText = {}};
}

std::unique_ptr<CNatsHub> CNatsHub::Open(HUB_OPTIONS stOptions, const std::string& strBench, std::string& strError)
{
    std::unique_ptr<CNatsHub> pNew(new CNatsHub(strBench));
    CNatsHub* const pThis = pNew.get();
    const auto put = [pThis](HUB_EVENT::KIND enKind, const std::string& strText) {
        pThis->Put({.enKind = enKind, .vecBytes = {}, .strText = strText});
    };
    stOptions.strName = "vex-forward " + strBench;
    stOptions.strInboxPrefix = InboxPrefix(strBench);
    pNew->m_pHub =
        CHub::Open(stOptions,
                   {.onConnected = [put] { put(HUB_EVENT::KIND::CONNECTED, ""); },
                    .onLost = [put](const std::string& strText) { put(HUB_EVENT::KIND::LOST, strText); },
                    .onError = [put](const std::string& strText) { put(HUB_EVENT::KIND::PROBLEM, strText); }},
                   CHub::PATIENCE::FOREVER, strError);
    if (!pNew->m_pHub)
        return nullptr;
    natsInbox* pInbox = nullptr;
    if (natsInbox_Create(&pInbox) != NATS_OK) {
        strError = NatsText(NATS_NO_MEMORY);
        return nullptr;
    }
    // The library's own inboxes have a prefix of their own: only the unique part is taken.
    const std::string strUnique = pInbox;
    natsInbox_Destroy(pInbox);
    pNew->m_strInbox = stOptions.strInboxPrefix + strUnique.substr(strUnique.rfind('.'));
    pNew->m_pAnswers = CHubSubscription::Open(
        *pNew->m_pHub, pNew->m_strInbox + ".*", [pThis](natsMsg& msg) { pThis->TakeAnswer(msg); }, strError);
    return pNew->m_pAnswers || pNew->m_pHub->IsClosed() ? std::move(pNew) : nullptr;
}

void CNatsHub::Put(HUB_EVENT event)
{
    {
        const std::lock_guard guard(m_Lock);
        m_queue.push_back(std::move(event));
    }
    m_Changed.notify_all();
}

std::optional<HUB_EVENT> CNatsHub::Wait(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_Lock);
    if (!m_Changed.wait_for(lock, limit, [this] { return !m_queue.empty(); }))
        return std::nullopt;
    HUB_EVENT event = std::move(m_queue.front());
    m_queue.pop_front();
    return event;
}

void CNatsHub::TakeAnswer(natsMsg& msg)
{
    const std::string_view strSubject = natsMsg_GetSubject(&msg);
    const std::string_view strAsked = strSubject.substr(strSubject.rfind('.') + 1);
    if (strAsked.empty())
        return;
    HUB_EVENT event = strAsked.front() == ASKED_LAST ? ReadLastAnswer(msg) : ReadStoredAnswer(msg);
    event.ullToken = Number(strAsked.substr(1));
    Put(std::move(event));
}

bool CNatsHub::Send(natsMsg* pMsg)
{
    return pMsg != nullptr && natsConnection_PublishMsg(m_pHub->Get(), pMsg) == NATS_OK;
}

bool CNatsHub::AskLast(const std::string& strSubject, uint64_t ullToken)
{
    const NatsMsg pMsg =
        MakeMessage(LastMessageSubject(strSubject), m_strInbox + '.' + ASKED_LAST + std::to_string(ullToken), {});
    return Send(pMsg.get());
}

bool CNatsHub::Publish(const MESSAGE& stMessage, uint64_t ullToken)
{
    const NatsMsg pMsg =
        MakeMessage(stMessage.strSubject, m_strInbox + '.' + ASKED_STORE + std::to_string(ullToken), stMessage.bytes);
    const std::string strLast = std::to_string(stMessage.ullExpectedLast);
    return pMsg && natsMsgHeader_Set(pMsg.get(), "Nats-Msg-Id", stMessage.strId.c_str()) == NATS_OK &&
           natsMsgHeader_Set(pMsg.get(), "Nats-Expected-Last-Subject-Sequence", strLast.c_str()) == NATS_OK &&
           Send(pMsg.get());
}

void CNatsHub::PutState(const std::string& strJson)
{
    (void)natsConnection_PublishString(m_pHub->Get(), StateSubject(m_strBench).c_str(), strJson.c_str());
}
