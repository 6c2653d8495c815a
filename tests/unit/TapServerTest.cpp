#include "support/RunningTap.h"
#include "support/TestBytes.h"
#include "support/VexProcess.h"
#include "support/WaitFor.h"
#include "tap/TapConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

using namespace std::chrono_literals;
using testing::EndsWith;
using RESULT = CTapReader::RESULT;

namespace
{
constexpr size_t RING = TAP_LEAST_BYTES;

class TapServer : public testing::Test
{
protected:
    std::unique_ptr<CTapConnection> Connect()
    {
        auto pConnection = CTapConnection::Open(m_strPath, m_strError);
        EXPECT_TRUE(pConnection) << m_strError;
        return pConnection;
    }
    static std::string NextText(CTapConnection& connection)
    {
        TAP_READ stRead;
        if (connection.Reader().Next(stRead) != RESULT::RECORD)
            return "none";
        return {stRead.bytes.begin(), stRead.bytes.end()};
    }

    CTempDir m_dir;
    std::string m_strPath = m_dir.Path() + "/tap";
    std::string m_strError;
};
} // namespace

TEST_F(TapServer, AnObserverGetsAPictureAndWhatFollows)
{
    CRunningTap server(m_strPath);
    ASSERT_TRUE(server.IsOpen()) << server.Error();
    EXPECT_FALSE(server.Writer().IsObserved());
    server.Writer().Write({}, AsBytes("before"));
    const auto pConnection = Connect();
    ASSERT_TRUE(pConnection);
    EXPECT_TRUE(server.Writer().IsObserved());
    EXPECT_EQ(NextText(*pConnection), "picture");
    EXPECT_EQ(NextText(*pConnection), "none");
    server.Writer().Write({}, AsBytes("after"));
    EXPECT_EQ(NextText(*pConnection), "after");
    EXPECT_EQ(pConnection->Reader().LostRecords(), 0u);
    EXPECT_TRUE(pConnection->Wait(0ms));
}

TEST_F(TapServer, TheHelloSaysWhoseRunItIs)
{
    std::array<std::unique_ptr<CTapConnection>, 2> apFirst;
    TAP_HELLO stOther;
    {
        CRunningTap server(m_strPath);
        apFirst = {Connect(), Connect()};
        ASSERT_TRUE(apFirst[0] && apFirst[1]);
    }
    CRunningTap server(m_strPath);
    const auto pOther = Connect();
    ASSERT_TRUE(pOther);
    const TAP_HELLO& stHello = apFirst[0]->Hello();
    EXPECT_EQ(stHello.ulRingBytes, RING);
    EXPECT_GT(stHello.ullAgentStart, 1'700'000'000'000'000'000u);
    EXPECT_FALSE(stHello.strHost.empty());
    EXPECT_EQ(stHello.ullRunHigh, apFirst[1]->Hello().ullRunHigh);
    EXPECT_EQ(stHello.ullRunLow, apFirst[1]->Hello().ullRunLow);
    EXPECT_NE(stHello.ullRunHigh, pOther->Hello().ullRunHigh);
}

TEST_F(TapServer, TheEndOfTheAgentEndsTheWaitAndWhatCameBeforeIsStillThere)
{
    std::unique_ptr<CTapConnection> pConnection;
    {
        CRunningTap server(m_strPath);
        pConnection = Connect();
        ASSERT_TRUE(pConnection);
        server.Writer().Write({}, AsBytes("last"));
    }
    EXPECT_FALSE(pConnection->Wait(5s));
    EXPECT_EQ(NextText(*pConnection), "picture");
    EXPECT_EQ(NextText(*pConnection), "last");
    EXPECT_FALSE(CTapConnection::Open(m_strPath, m_strError)) << "the socket is gone";
    EXPECT_THAT(m_strError, EndsWith("No such file or directory"));
}

TEST_F(TapServer, WithTheLastObserverTheObservingEnds)
{
    CRunningTap server(m_strPath);
    auto pFirst = Connect();
    auto pSecond = Connect();
    pFirst.reset();
    EXPECT_FALSE(WaitFor([&] { return !server.Writer().IsObserved(); }, 200ms)) << "one is left";
    pSecond.reset();
    EXPECT_TRUE(WaitFor([&] { return !server.Writer().IsObserved(); }));
}

TEST_F(TapServer, OnlyTheOwnerAndItsGroupMayObserve)
{
    CRunningTap server(m_strPath);
    struct stat stFile
    {
    };
    ASSERT_EQ(stat(m_strPath.c_str(), &stFile), 0);
    EXPECT_EQ(stFile.st_mode & 0777, 0660u);
}

TEST_F(TapServer, ASocketThatACrashLeftIsReplacedButNothingElse)
{
    {
        sockaddr_un stAddress{};
        stAddress.sun_family = AF_UNIX;
        m_strPath.copy(stAddress.sun_path, sizeof(stAddress.sun_path) - 1);
        const CUniqueFd left(socket(AF_UNIX, SOCK_STREAM, 0));
        ASSERT_EQ(bind(left.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)), 0);
    }
    CRunningTap server(m_strPath);
    EXPECT_TRUE(server.IsOpen()) << server.Error();
    const CRunningTap second(m_strPath);
    EXPECT_FALSE(second.IsOpen());
    EXPECT_EQ(second.Error(), m_strPath + " is in use by another agent");
    EXPECT_TRUE(Connect()) << "the first one goes on";

    m_dir.Write("file", "text");
    const CRunningTap third(m_dir.Path() + "/file");
    EXPECT_EQ(third.Error(), m_dir.Path() + "/file: Address already in use");
    EXPECT_EQ(m_dir.Read("file"), "text");
}

TEST_F(TapServer, APathThatCannotBeIsAnError)
{
    EXPECT_EQ(CRunningTap(m_dir.Path() + "/none/tap").Error(), m_dir.Path() + "/none/tap: No such file or directory");
    const std::string strLong(108, 'x');
    EXPECT_EQ(CRunningTap(strLong).Error(), strLong + " is too long for a socket's name");
    EXPECT_FALSE(CTapConnection::Open(strLong, m_strError));
    EXPECT_EQ(m_strError, strLong + " is too long for a socket's name");
}

namespace
{
/// Something else that listens there and sends the bytes.
bool OpensAgainst(const std::string& strPath, const Bytes& hello, std::string& strError)
{
    sockaddr_un stAddress{};
    stAddress.sun_family = AF_UNIX;
    strPath.copy(stAddress.sun_path, sizeof(stAddress.sun_path) - 1);
    const CUniqueFd listenFd(socket(AF_UNIX, SOCK_STREAM, 0));
    EXPECT_EQ(bind(listenFd.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)), 0);
    EXPECT_EQ(listen(listenFd.Get(), 1), 0);
    std::thread peer([&] {
        const CUniqueFd fd(accept(listenFd.Get(), nullptr, nullptr));
        (void)send(fd.Get(), hello.data(), hello.size(), MSG_NOSIGNAL);
    });
    const bool bOpen = CTapConnection::Open(strPath, strError) != nullptr;
    peer.join();
    unlink(strPath.c_str());
    return bOpen;
}
} // namespace

TEST_F(TapServer, WhoeverElseListensThereIsNoAgent)
{
    const std::string strNone = m_strPath + ": what listens there is no agent";
    for (const Bytes& hello : {Bytes(), Fill(10), Fill(TAP_HELLO::SIZE)}) {
        EXPECT_FALSE(OpensAgainst(m_strPath, hello, m_strError));
        EXPECT_EQ(m_strError, strNone);
    }
}
