// Entry point of `lumo`: parses the command line and maps outcomes to exit
// status 0 (success), 1 (failure) and 2 (usage error).
#include <cstdio>
#include <exception>

#include "commands.h"
#include "failure.h"

int main(int argc, char** argv) {
  CLI::App app(
      "lumo: run the Lumo colour-look filter plugin on images as the camera host does, "
      "and build, check and examine its calibration files");
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Help for every command");
  lumo::addReplayCommand(app);
  lumo::addRunCommand(app);
  lumo::addDemoCommand(app);
  lumo::addCalibCommand(app);
  lumo::addGenerateCommand(app);
  lumo::addYuvCommand(app);
  lumo::addSessionCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  } catch (const lumo::Failure& e) {
    std::fprintf(stderr, "lumo: %s\n", e.what());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "lumo: %s\n", e.what());
    return 1;
  }
  return 0;
}
