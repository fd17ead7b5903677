// SPDX-License-Identifier: MIT
#pragma once
// The verbs of the program, and how each of them ends.
#include <CLI/App.hpp>
#include <functional>

namespace verbs {

class Configuration;

enum ExitCode : int {
    Done = 0,
    NotSound = 1, // data was lost, or is not sound
    Failed = 2,   // nothing could be done, or wrong usage
};

/// What the chosen verb does once the command line is read.
/// Result: an ExitCode.
using Run = std::function<int()>;

/// Each adds its verb to `program`; choosing it sets `run`.
void addCheck(CLI::App& program, Run& run);
void addConfig(CLI::App& program, Run& run, const Configuration& configuration);
void addDemo(CLI::App& program, Run& run);
void addDoctor(CLI::App& program, Run& run);
void addExport(CLI::App& program, Run& run);
void addHelp(CLI::App& program, Run& run);
void addInspect(CLI::App& program, Run& run);
void addMonitor(CLI::App& program, Run& run);
void addRecord(CLI::App& program, Run& run);
void addReplay(CLI::App& program, Run& run);
void addSimulate(CLI::App& program, Run& run);

} // namespace verbs
