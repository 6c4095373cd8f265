#pragma once

#include <filesystem>

#include "platform/analysis/LibraryAnalyzer.h"

// The analysis as vexo-library runs it (the analyze command, and after a scan): progress on
// standard error (a bar redrawn in place on a terminal, a line at every tenth elsewhere),
// the songs that could not be analysed whole on standard error, and a summary on standard
// output.
namespace vexo::library {

// Returns the exit code: 0 done, 1 the index could not be used, 130 interrupted (what was
// finished is kept).
[[nodiscard]] int runAnalysis(const std::filesystem::path& indexPath, const analysis::LibraryAnalyzer::Options& options,
                              bool quiet);

} // namespace vexo::library
