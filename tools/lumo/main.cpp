// Entry point of `lumo`: parses the command line and maps outcomes to exit
// status 0 (success), 1 (failure) and 2 (usage error).
#include <cstdio>
#include <exception>
#include <string>

#include "commands.h"
#include "failure.h"

namespace {

// CLI11 reports a mistyped command as an unexpected argument; say what it is
// and which commands exist. Returns false after printing when `argv` names an
// unknown command where one is required.
bool commandsKnown(CLI::App& app, int argc, char** argv) {
  CLI::App* level = &app;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.empty() || arg[0] == '-') return true;
    const auto subs = level->get_subcommands([](CLI::App*) { return true; });
    if (subs.empty() || level->get_require_subcommand_min() == 0) return true;
    CLI::App* next = nullptr;
    std::string names;
    for (CLI::App* sub : subs) {
      if (sub->check_name(arg)) next = sub;
      names += (names.empty() ? "" : ", ") + sub->get_name();
    }
    if (next == nullptr) {
      const std::string path = level == &app ? "lumo" : "lumo " + level->get_name();
      std::fprintf(stderr, "lumo: unknown command \"%s\" (commands: %s; see %s --help)\n",
                   arg.c_str(), names.c_str(), path.c_str());
      return false;
    }
    level = next;
  }
  return true;
}

// Usage errors read like every other message of the tool: one line naming
// the command and the option, then where to find help.
std::string usageMessage(const CLI::App* app, const CLI::Error& e) {
  std::string path = "lumo";
  for (const CLI::App* level = app; level != nullptr;) {
    const auto parsed = level->get_subcommands();
    level = parsed.empty() ? nullptr : parsed.front();
    if (level != nullptr) path += " " + level->get_name();
  }
  const std::string command = path == "lumo" ? "" : path.substr(5) + ": ";
  return "lumo: " + command + e.what() + "\nRun " + path + " --help for more information.\n";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "lumo: run the Lumo colour-look filter plugin on images as the camera host does, "
      "and build, check and examine its calibration files");
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Help for every command");
  app.set_version_flag("--version", "lumo " LUMO_VERSION);
  app.failure_message(usageMessage);
  lumo::addReplayCommand(app);
  lumo::addRunCommand(app);
  lumo::addDemoCommand(app);
  lumo::addCalibCommand(app);
  lumo::addGenerateCommand(app);
  lumo::addYuvCommand(app);
  lumo::addSessionCommand(app);
  lumo::addReportCommand(app);
  lumo::addLutCommand(app);
  lumo::addCompareCommand(app);
  if (!commandsKnown(app, argc, argv)) return 2;
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  } catch (const lumo::Failure& e) {
    // An empty message: the command has said why already.
    if (*e.what() != '\0') std::fprintf(stderr, "lumo: %s\n", e.what());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "lumo: %s\n", e.what());
    return 1;
  }
  return 0;
}
