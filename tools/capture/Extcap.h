#pragma once

#include "capture/CaptureOptions.h"

/// Answers what Wireshark asks before it captures: the interface, its link type, its options. With EXTCAP::CAPTURE only
/// the interface is looked at. False, with a line on errors, for an interface that isn't ours.
bool AnswerExtcap(const CAPTURE_OPTIONS& stOptions, std::ostream& out, std::ostream& errors);
