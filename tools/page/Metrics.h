#pragma once

#include "page/PageState.h"

#include <string>

/// What the page has counted, in the text format of Prometheus.
std::string MetricsText(const PAGE_STATE& stState);
