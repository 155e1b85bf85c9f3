// Diagnosis of LUT files: the facts OpenColorIO and the header give, the
// problems lutProblems() finds, and the import `calib build` would make.
#include "lut_doctor.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "calib_findings.h"

namespace lumo {
namespace {

std::string domainText(const calib::LutSourceInfo& info) {
  char text[128];
  if (info.domainMin[0] == info.domainMin[1] && info.domainMin[1] == info.domainMin[2] &&
      info.domainMax[0] == info.domainMax[1] && info.domainMax[1] == info.domainMax[2])
    std::snprintf(text, sizeof(text), "%g..%g", info.domainMin[0], info.domainMax[0]);
  else
    std::snprintf(text, sizeof(text), "%g %g %g..%g %g %g", info.domainMin[0], info.domainMin[1],
                  info.domainMin[2], info.domainMax[0], info.domainMax[1], info.domainMax[2]);
  return text;
}

}  // namespace

LutDiagnosis diagnoseLut(const std::string& path, const std::string& imageLayout) {
  LutDiagnosis d;
  d.file = path;
  try {
    d.import = calib::importLut(path, imageLayout);
    d.problems = calib::lutProblems(d.import);
  } catch (const std::exception& e) {
    d.readError = e.what();
  }
  return d;
}

std::vector<std::string> diagnosisLines(const LutDiagnosis& d) {
  const std::string file = escapeBytes(d.file);
  if (!d.readError.empty())
    return {escapeBytes(d.readError), file + ": calib build would refuse it", file + ": 1 problem"};
  const calib::LutSourceInfo& info = d.import.info;
  std::string what = file + ": " + info.format;
  if (!info.dialect.empty())
    what += " (" + (info.format == "image" ? "layout " + info.dialect : info.dialect + " dialect") +
            ")";
  what += info.size3d != 0 ? ", " + std::to_string(info.size3d) + "-point lattice" : ", no lattice";
  what += info.size1d != 0 ? ", " + std::to_string(info.size1d) + "-entry shaper" : ", no shaper";
  what += ", domain " + domainText(info);
  what += info.title.empty() ? ", no title" : ", title \"" + escapeBytes(info.title) + "\"";
  std::vector<std::string> lines{what};
  for (const calib::Finding& p : d.problems)
    lines.push_back(escapeBytes(calib::findingLine(d.file, p)));
  lines.push_back(file + ": calib build would take it as " + calib::describeImport(d.import));
  lines.push_back(file + ": " +
                  (d.problems.empty() ? std::string("ok") : counted(d.problems.size(), "problem")));
  return lines;
}

nlohmann::json diagnosisJson(const LutDiagnosis& d) {
  nlohmann::json j = {{"file", escapeBytes(d.file)}, {"ok", d.ok()}};
  if (!d.readError.empty()) {
    j["error"] = escapeBytes(d.readError);
    return j;
  }
  const calib::LutSourceInfo& info = d.import.info;
  j["format"] = info.format;
  j["dialect"] = info.dialect;
  j["title"] = escapeBytes(info.title);
  j["lattice_size"] = info.size3d;
  j["shaper_size"] = info.size1d;
  j["domain_min"] = info.domainMin;
  j["domain_max"] = info.domainMax;
  nlohmann::json problems = nlohmann::json::array();
  for (const calib::Finding& p : d.problems) problems.push_back(calib::findingJson(p, "code"));
  j["problems"] = problems;
  j["build"] = {{"summary", calib::describeImport(d.import)},
                {"error_max", d.import.error.max},
                {"error_mean", d.import.error.mean}};
  return j;
}

}  // namespace lumo
