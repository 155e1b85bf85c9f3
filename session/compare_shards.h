// A comparison's findings as a JSON document, the file one shard of a
// sharded run writes, and the merge of such files into the result that one
// unsharded run gives.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "compare.h"

namespace lumo {

// The document; `pictures` adds the page's pictures (a shard file carries
// them, --json on the terminal does not).
nlohmann::json compareJson(const CompareResult& result, bool pictures);
// Reads a document written by compareJson; throws Failure naming `file` and
// the field that is wrong.
CompareResult compareFromJson(const nlohmann::json& document, const std::string& file);

struct ShardFile {
  std::string path;
  CompareResult result;
};
// Merges the shards 1..N of one run. Refuses (Failure, naming the files and
// what differs) shards of other calibrations, sessions, thresholds or shard
// counts, a shard given twice and a shard missing.
CompareResult mergeShards(const std::vector<ShardFile>& shards);

}  // namespace lumo
