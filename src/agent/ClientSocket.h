#pragma once

/// Prepares the socket of a new client: a small send buffer, no waiting, and where the configuration asks for recovery,
/// an end for peers that have vanished. False when it can't be made non-blocking.
bool SetUpClientSocket(int nSocket);
