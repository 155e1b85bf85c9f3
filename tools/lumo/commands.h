// The tool's subcommands; each adds itself to the application. Callbacks
// throw Failure for anything that should end the run with status 1.
#pragma once

#include <CLI/CLI.hpp>

namespace lumo {

void addReplayCommand(CLI::App& app);
void addRunCommand(CLI::App& app);
void addDemoCommand(CLI::App& app);
void addCalibCommand(CLI::App& app);
void addGenerateCommand(CLI::App& app);

}  // namespace lumo
