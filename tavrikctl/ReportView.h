#pragma once

#include "doctor/Finding.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

/// Prints the findings in up to 80 columns, each with its remedy below. Consecutive findings share
/// one remedy, and three or more equal ones are printed as one.
void PrintReport(const Findings& findings, Printer& printer);

}  // namespace tavrik
