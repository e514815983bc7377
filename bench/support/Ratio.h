#pragma once

#include <string>

namespace zorva::bench {

/// Asks the benchmark main to print, after the run, the time per iteration of `measured` divided
/// by that of `baseline` (benchmark names as registered). Call from a static initialiser.
bool reportRatio(std::string measured, std::string baseline);

}  // namespace zorva::bench
