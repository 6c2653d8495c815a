#pragma once

/// Moves the calling process to a network namespace of its own, with only a loopback interface, so that tests
/// with fixed ports can run side by side. Call before any thread starts. False, with errno, when it can't.
bool IsolateNetwork();
