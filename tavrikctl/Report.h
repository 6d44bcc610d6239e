#pragma once

#include "doctor/Finding.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

/// The findings as a person reads them, in 80 columns: what to do stands below what is wrong, once
/// for findings in a row that need the same, and findings in a row that say the same count as one
/// from three on.
void PrintReport(const Findings& findings, Printer& printer);

}  // namespace tavrik
