// Compare documents: writing, strict reading, and merging shards.
#include "compare_shards.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "failure.h"

namespace lumo {
namespace {

using nlohmann::json;

json keyJson(const FrameKey& k) { return {{"session", k.session}, {"line", k.line}}; }

// A field of `j` that must be there with the type `check` accepts.
const json& field(const json& j, const char* name, bool (json::*check)() const,
                  const std::string& where, const char* expected) {
  if (!j.is_object() || !j.contains(name) || !(j.at(name).*check)())
    throw Failure(where + "\"" + name + "\": expected " + expected);
  return j.at(name);
}

std::string text(const json& j, const char* name, const std::string& where) {
  return field(j, name, &json::is_string, where, "a string").get<std::string>();
}
double number(const json& j, const char* name, const std::string& where) {
  return field(j, name, &json::is_number, where, "a number").get<double>();
}
size_t count(const json& j, const char* name, const std::string& where) {
  return field(j, name, &json::is_number_unsigned, where, "a whole number").get<size_t>();
}

FrameKey keyFrom(const json& j, const std::string& where) {
  return {text(j, "session", where), count(j, "line", where)};
}

std::string describeShard(const ShardFile& s) {
  return s.path + " (shard " + std::to_string(s.result.shard->first) + "/" +
         std::to_string(s.result.shard->second) + ")";
}

}  // namespace

json compareJson(const CompareResult& r, bool pictures) {
  json doc;
  doc["calibration"] = {{"new", {{"file", r.calibNew}, {"digest", r.digestNew}}},
                        {"against", {{"file", r.calibAgainst}, {"digest", r.digestAgainst}}}};
  json sessions = json::array();
  for (const SessionInput& s : r.sessions)
    sessions.push_back({{"file", s.path}, {"digest", s.digest}});
  doc["sessions"] = sessions;
  doc["threshold"] = r.threshold;
  doc["picture_count"] = r.pictureCount;
  if (r.shard) doc["shard"] = {{"index", r.shard->first}, {"count", r.shard->second}};
  json frames = json::array();
  for (const CompareFrame& f : r.frames) {
    json j = keyJson(f.key);
    j["frame"] = f.frame;
    j["instance"] = f.instance;
    if (!f.problem.empty()) {
      j["problem"] = f.problem;
      frames.push_back(j);
      continue;
    }
    j["scene"] = f.scene;
    j["mean"] = f.scores.mean;
    j["p95"] = f.scores.p95;
    j["max"] = f.scores.max;
    j["share"] = f.scores.share;
    j["identical"] = f.scores.identical;
    j["choice"] = {
        {"changed", f.choiceChanges}, {"new", f.choiceNew}, {"against", f.choiceAgainst}};
    j["luts"] = f.luts;
    frames.push_back(j);
  }
  doc["frames"] = frames;
  if (pictures) {
    json list = json::array();
    for (const FramePictures& p : r.pictures) {
      json j = keyJson(p.key);
      j["before"] = p.before;
      j["against"] = p.against;
      j["after"] = p.after;
      j["difference"] = p.difference;
      list.push_back(j);
    }
    doc["pictures"] = list;
  }
  return doc;
}

CompareResult compareFromJson(const json& doc, const std::string& file) {
  const std::string at = file + ": ";
  CompareResult r;
  const json& calib = field(doc, "calibration", &json::is_object, at, "an object");
  const json& n = field(calib, "new", &json::is_object, at + "calibration: ", "an object");
  const json& a = field(calib, "against", &json::is_object, at + "calibration: ", "an object");
  r.calibNew = text(n, "file", at + "calibration.new: ");
  r.digestNew = text(n, "digest", at + "calibration.new: ");
  r.calibAgainst = text(a, "file", at + "calibration.against: ");
  r.digestAgainst = text(a, "digest", at + "calibration.against: ");
  for (const json& s : field(doc, "sessions", &json::is_array, at, "an array"))
    r.sessions.push_back(
        {text(s, "file", at + "sessions: "), text(s, "digest", at + "sessions: ")});
  r.threshold = number(doc, "threshold", at);
  r.pictureCount = count(doc, "picture_count", at);
  if (doc.contains("shard")) {
    const json& s = doc.at("shard");
    r.shard = {uint32_t(count(s, "index", at + "shard: ")),
               uint32_t(count(s, "count", at + "shard: "))};
    if (r.shard->first < 1 || r.shard->first > r.shard->second)
      throw Failure(at + "shard: \"index\": expected 1 to " + std::to_string(r.shard->second) +
                    ", got " + std::to_string(r.shard->first));
  }
  const json& frames = field(doc, "frames", &json::is_array, at, "an array");
  for (size_t i = 0; i < frames.size(); ++i) {
    const json& j = frames[i];
    const std::string where = at + "frames[" + std::to_string(i) + "]: ";
    CompareFrame f;
    f.key = keyFrom(j, where);
    f.frame = uint32_t(count(j, "frame", where));
    f.instance = text(j, "instance", where);
    if (j.contains("problem")) {
      f.problem = text(j, "problem", where);
      r.frames.push_back(f);
      continue;
    }
    f.scene = text(j, "scene", where);
    f.scores.mean = number(j, "mean", where);
    f.scores.p95 = number(j, "p95", where);
    f.scores.max = number(j, "max", where);
    f.scores.share = number(j, "share", where);
    f.scores.identical =
        field(j, "identical", &json::is_boolean, where, "true or false").get<bool>();
    const json& choice = field(j, "choice", &json::is_object, where, "an object");
    for (const json& c : field(choice, "changed", &json::is_array, where + "choice: ", "an array"))
      f.choiceChanges.push_back(c.is_string() ? c.get<std::string>() : c.dump());
    f.choiceNew = text(choice, "new", where + "choice: ");
    f.choiceAgainst = text(choice, "against", where + "choice: ");
    for (const json& l : field(j, "luts", &json::is_array, where, "an array"))
      f.luts.push_back(l.is_number_integer() ? l.get<int>() : -1);
    r.frames.push_back(f);
  }
  if (doc.contains("pictures")) {
    const json& pictures = field(doc, "pictures", &json::is_array, at, "an array");
    for (size_t i = 0; i < pictures.size(); ++i) {
      const json& j = pictures[i];
      const std::string where = at + "pictures[" + std::to_string(i) + "]: ";
      r.pictures.push_back({keyFrom(j, where), text(j, "before", where), text(j, "against", where),
                            text(j, "after", where), text(j, "difference", where)});
    }
  }
  return r;
}

CompareResult mergeShards(const std::vector<ShardFile>& shards) {
  if (shards.empty()) throw Failure("no shard files to merge");
  for (const ShardFile& s : shards)
    if (!s.result.shard) throw Failure(s.path + ": not a shard file (made without --shard)");
  const ShardFile& first = shards.front();
  const CompareResult& base = first.result;
  std::map<uint32_t, const ShardFile*> byIndex;
  for (const ShardFile& s : shards) {
    const CompareResult& r = s.result;
    auto refuse = [&](const std::string& what) {
      throw Failure(s.path + " and " + first.path + " come from different runs: " + what +
                    "; they do not merge");
    };
    if (r.digestNew != base.digestNew)
      refuse("the new calibration differs (" + r.calibNew + " vs " + base.calibNew + ")");
    if (r.digestAgainst != base.digestAgainst)
      refuse("the calibration compared against differs (" + r.calibAgainst + " vs " +
             base.calibAgainst + ")");
    if (r.sessions.size() != base.sessions.size())
      refuse(std::to_string(r.sessions.size()) + " sessions vs " +
             std::to_string(base.sessions.size()));
    for (size_t i = 0; i < r.sessions.size(); ++i)
      if (r.sessions[i].path != base.sessions[i].path ||
          r.sessions[i].digest != base.sessions[i].digest)
        refuse("session " + r.sessions[i].path + " vs " + base.sessions[i].path +
               (r.sessions[i].path == base.sessions[i].path ? " (other contents)" : ""));
    if (r.threshold != base.threshold) refuse("--threshold differs");
    if (r.pictureCount != base.pictureCount) refuse("--pictures differs");
    if (r.shard->second != base.shard->second)
      refuse("split into " + std::to_string(r.shard->second) + " vs " +
             std::to_string(base.shard->second) + " shards");
    if (auto [it, fresh] = byIndex.emplace(r.shard->first, &s); !fresh)
      throw Failure(describeShard(s) + " and " + it->second->path + " are the same shard");
  }
  const uint32_t n = base.shard->second;
  for (uint32_t i = 1; i <= n; ++i)
    if (!byIndex.count(i))
      throw Failure("shard " + std::to_string(i) + "/" + std::to_string(n) +
                    " is missing from the merge");

  CompareResult merged = base;
  merged.shard.reset();
  merged.frames.clear();
  merged.pictures.clear();
  std::map<FrameKey, const FramePictures*> pictures;
  for (const ShardFile& s : shards) {
    merged.frames.insert(merged.frames.end(), s.result.frames.begin(), s.result.frames.end());
    for (const FramePictures& p : s.result.pictures) pictures.emplace(p.key, &p);
  }
  std::set<FrameKey> keys;
  for (const CompareFrame& f : merged.frames)
    if (!keys.insert(f.key).second)
      throw Failure(f.key.session + ":" + std::to_string(f.key.line) +
                    " is in more than one shard");
  std::sort(merged.frames.begin(), merged.frames.end(), changedMore);
  // Each shard kept its own most changed frames, so the run's most changed
  // are among them.
  for (const CompareFrame& f : merged.frames) {
    if (merged.pictures.size() >= merged.pictureCount) break;
    if (auto it = pictures.find(f.key); it != pictures.end())
      merged.pictures.push_back(*it->second);
  }
  return merged;
}

}  // namespace lumo
