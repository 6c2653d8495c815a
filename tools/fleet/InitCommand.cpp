#include "fleet/Fleet.h"
#include "fleet/FleetFormat.h"
#include "fleet/LabFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace
{
constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr int64_t NO_LIMIT = -1;

struct FREE_INFO
{
    void operator()(jsStreamInfo* pInfo) const { jsStreamInfo_Destroy(pInfo); }
};
using StreamInfo = std::unique_ptr<jsStreamInfo, FREE_INFO>;

/// Tells of a stream or bucket that is there now, or why it isn't.
EXIT_CODE Report(const FLEET_CONTEXT& stContext, const CFleetLink& link, const std::string& strWhat,
                 natsStatus enStatus, jsErrCode enCode)
{
    if (enStatus != NATS_OK)
        return stContext.Fail(link.CodeOf(enStatus), strWhat + ": " + NatsText(enStatus, enCode));
    stContext.out << strWhat << " is as the file wants it\n";
    return CODE_DONE;
}

EXIT_CODE MakeStream(const FLEET_CONTEXT& stContext, const CFleetLink& link, const LAB_FILE& stLab)
{
    const char* apszSubjects[] = {FLEET_SUBJECTS};
    jsStreamConfig stConfig;
    (void)jsStreamConfig_Init(&stConfig); // fails for no pointer alone
    stConfig.Name = FLEET_STREAM;
    stConfig.Subjects = apszSubjects;
    stConfig.SubjectsLen = 1;
    stConfig.Storage = js_FileStorage;
    stConfig.Replicas = stLab.nReplicas;
    stConfig.MaxBytes = stLab.ullMaxBytes > 0 ? static_cast<int64_t>(stLab.ullMaxBytes) : NO_LIMIT;
    stConfig.MaxAge = static_cast<int64_t>(stLab.ullMaxAge) * NS_PER_SECOND;
    stConfig.AllowDirect = true; // forwarders and fetches ask for single messages
    jsErrCode enCode{};
    jsStreamInfo* pNew = nullptr;
    natsStatus enStatus = js_AddStream(&pNew, link.Js(), &stConfig, nullptr, &enCode);
    if (enStatus != NATS_OK && enCode == JSStreamNameExistErr)
        enStatus = js_UpdateStream(&pNew, link.Js(), &stConfig, nullptr, &enCode);
    const StreamInfo pInfo(pNew);
    return Report(stContext, link, std::string("stream ") + FLEET_STREAM, enStatus, enCode);
}

/// A bucket that is there needs at most another count of replicas, which its stream has.
natsStatus UpdateBucket(jsCtx* pJs, int nReplicas, jsErrCode& enCode)
{
    const std::string strStream = std::string("KV_") + FLEET_BUCKET;
    jsStreamInfo* pNew = nullptr;
    natsStatus enStatus = js_GetStreamInfo(&pNew, pJs, strStream.c_str(), nullptr, &enCode);
    const StreamInfo pInfo(pNew);
    if (enStatus != NATS_OK || pInfo->Config->Replicas == nReplicas)
        return enStatus;
    pInfo->Config->Replicas = nReplicas;
    jsStreamInfo* pNewer = nullptr;
    enStatus = js_UpdateStream(&pNewer, pJs, pInfo->Config, nullptr, &enCode);
    const StreamInfo pNewInfo(pNewer);
    return enStatus;
}

EXIT_CODE MakeBucket(const FLEET_CONTEXT& stContext, const CFleetLink& link, const LAB_FILE& stLab)
{
    const std::string strWhat = std::string("bucket ") + FLEET_BUCKET;
    jsErrCode enCode{};
    kvStore* pThere = nullptr;
    if (js_KeyValue(&pThere, link.Js(), FLEET_BUCKET) == NATS_OK) {
        const KvStore pStore(pThere);
        const natsStatus enStatus = UpdateBucket(link.Js(), stLab.nReplicas, enCode);
        return Report(stContext, link, strWhat, enStatus, enCode);
    }
    kvConfig stConfig;
    (void)kvConfig_Init(&stConfig); // fails for no pointer alone
    stConfig.Bucket = FLEET_BUCKET;
    stConfig.History = 1;
    stConfig.StorageType = js_FileStorage;
    stConfig.Replicas = stLab.nReplicas;
    kvStore* pNew = nullptr;
    const natsStatus enStatus = js_CreateKeyValue(&pNew, link.Js(), &stConfig);
    const KvStore pStore(pNew);
    return Report(stContext, link, strWhat, enStatus, enCode);
}

EXIT_CODE WritePermissions(const FLEET_CONTEXT& stContext, const LAB_FILE& stLab, const std::string& strPath)
{
    const std::string strText = PermissionsText(stLab);
    if (strPath == "-") {
        stContext.out << strText;
        return CODE_DONE;
    }
    std::ofstream file(strPath, std::ios::trunc);
    file << strText;
    file.close();
    if (!file.fail())
        return CODE_DONE;
    return stContext.Fail(CODE_USAGE, strPath + ": " + std::strerror(errno));
}
} // namespace

EXIT_CODE RunInit(const FLEET_CONTEXT& stContext, const INIT_ARGS& stArgs)
{
    std::ifstream file(stArgs.strFile);
    std::ostringstream text;
    text << file.rdbuf();
    LAB_FILE stLab;
    std::string strError;
    if (!file)
        return stContext.Fail(CODE_USAGE, stArgs.strFile + ": " + std::strerror(errno));
    if (!ParseLabFile(text.str(), stLab, strError))
        return stContext.Fail(CODE_USAGE, stArgs.strFile + ": " + strError);
    if (!stArgs.strPermissions.empty())
        return WritePermissions(stContext, stLab, stArgs.strPermissions);
    CFleetLink link;
    EXIT_CODE enCode = link.Open(stContext);
    if (enCode == CODE_DONE)
        enCode = MakeStream(stContext, link, stLab);
    return enCode == CODE_DONE ? MakeBucket(stContext, link, stLab) : enCode;
}
