#pragma once

#include "support/TestBytes.h"
#include "tap/TapRecord.h"

#include <string>
#include <vector>

/// A record of a capture, owned.
struct SESSION_RECORD
{
    TAP_RECORD stHead;
    Bytes bytes;
};

/// All records of a capture file; none when it can't be read to its end.
std::vector<SESSION_RECORD> ReadSession(const std::string& strPath);
void WriteSession(const std::string& strPath, const std::vector<SESSION_RECORD>& session);
/// The agent's configuration in it.
std::string SessionConfig(const std::vector<SESSION_RECORD>& session);

/// What differs between a session and its replay; empty when they are equal. Compared are, record by record, kind,
/// flags, UE, channel, port and client numbers and all bytes, in order within each stream: a kind of a UE's channel,
/// for clients of a connection, for datagrams of their id. Between streams the order is that of threads. Left aside are
/// - times, and the numbers of the records, which count the whole run;
/// - the configuration, in which the tap's socket is another;
/// - names of devices, in events and in the channel table that clients ask for: pseudo terminals are numbered anew;
/// - datagrams that come once a second: transfer reports, which count bytes until then, and the version;
/// - events and datagrams behind the last recorded ones: of the modem that leaves at the end of a replay.
std::string SessionDifference(const std::vector<SESSION_RECORD>& recorded, const std::vector<SESSION_RECORD>& replayed);
