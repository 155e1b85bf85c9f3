// The parts of `lumo report` that `lumo replay --report` shares: the page of
// a replay that already ran.
#pragma once

#include <string>
#include <vector>

#include "replay.h"
#include "coverage.h"
#include "html.h"
#include "session.h"

namespace lumo {

// The replay section and the strength strip for frames that went through
// the plugin (`probe` blends the strip's LUT; without one there is no strip).
void addSessionSections(const std::vector<SessionFrame>& frames,
                        const std::vector<FrameReport>& reports, const std::string& sessionDir,
                        const report::SelectionProbe* probe,
                        std::vector<report::Section>& sections);

// A whole page for a finished replay: the calibration under the device root
// when there is one, then the session. Throws Failure.
void writeSessionReport(const std::vector<SessionFrame>& frames,
                        const std::vector<FrameReport>& reports, const std::string& sessionDir,
                        const std::string& sessionName, const std::string& output);

}  // namespace lumo
