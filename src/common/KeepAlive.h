#pragma once

/// Sees to it that a TCP connection whose peer has vanished ends within 30 s: one that carries nothing is asked, one
/// with bytes under way is given up. Where the configuration asks for recovery only; a wish that the system may refuse.
void KeepAlive(int nSocket);
