#pragma once

#include <cstddef>
#include <string>

#include "web/Cell.h"
#include "web/Statistics.h"

namespace tavrik {

/// The cell in Prometheus' text format. A gripper that is gone has only its `up`, which is 0.
/// @param viewers how many browsers look
std::string FormatMetrics(const Cell& cell, const Statistics& statistics, std::size_t viewers,
                          CellGripper::TimePoint now);

}  // namespace tavrik
