// The tool's subcommands; each adds itself to the application. Callbacks
// throw Failure for anything that should end the run with status 1.
#pragma once

#include <CLI/CLI.hpp>

#include "output_names.h"

namespace lumo {

void addReplayCommand(CLI::App& app);
void addRunCommand(CLI::App& app);
void addDemoCommand(CLI::App& app);
void addCalibCommand(CLI::App& app);
void addGenerateCommand(CLI::App& app);
void addYuvCommand(CLI::App& app);
void addSessionCommand(CLI::App& app);
void addReportCommand(CLI::App& app);
void addLutCommand(CLI::App& app);
void addCompareCommand(CLI::App& app);

// A group of commands ("lumo GROUP NAME") with its first command.
inline CLI::App* addGroupedCommand(CLI::App& app, const std::string& group,
                                   const std::string& groupHelp, const std::string& name,
                                   const std::string& help) {
  CLI::App* g = app.add_subcommand(group, groupHelp);
  g->require_subcommand(1);
  return g->add_subcommand(name, help);
}

// For -o: a name the tool knows how to write; anything else is a usage error.
inline CLI::Validator outputImageName() {
  return CLI::Validator([](std::string& name) { return outputNameProblem(name); }, "IMAGE");
}

}  // namespace lumo
