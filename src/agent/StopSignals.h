#pragma once

class CClientServer;

/// From now on SIGTERM and SIGINT end the client loop, also one that hasn't begun, and with it the run. Another one
/// changes nothing. The server must live until the process ends. Should the end take too long, because the log's file
/// takes nothing for instance, the process ends without it.
void StopOnSignals(CClientServer& clients);
