// Command-line options shared by every command that runs the plugin.
#pragma once

#include <CLI/CLI.hpp>

#include "host_setup.h"
#include "replay.h"

namespace lumo {

struct HostCommandOptions {
  HostSetup setup;
  std::string plugin;
  std::string outDir = ".";
  int stylization = -1;  // -1: leave frames without a stylisation type as they are
  bool json = false;
  unsigned jobs = 1;  // set from --jobs, whose default is the number of cores
};

// Checks that make bad option values usage errors (exit 2) when parsed.
CLI::Validator logLevelNames();
CLI::Validator propertyArgument();

void addHostOptions(CLI::App& command, HostCommandOptions& options, bool withOut = true);

// Runs frames with the host options and prints the per-frame results
// (a table, or JSON with --json) on stdout.
std::vector<FrameReport> runFrames(const std::vector<SessionFrame>& frames,
                                   const HostCommandOptions& options, const std::string& sessionDir,
                                   bool keepInputs = false, bool print = true);

// Parses a float the way sessions spell them ("1.5", "nan", "0x3f800000").
float parseFloatArgument(const std::string& text, const std::string& option);

}  // namespace lumo
