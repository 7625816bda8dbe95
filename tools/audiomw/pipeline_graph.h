// Graphviz text of each stream configuration's pipeline: its AI with the channels it
// delivers, each node with the blocks it reads and writes and the grouping after it,
// and the AOs, dump files and voice library the nodes feed.
#ifndef AUDIOMW_TOOL_PIPELINE_GRAPH_H
#define AUDIOMW_TOOL_PIPELINE_GRAPH_H

#include <string>

#include "config_model.h"

namespace audiomw_tool {

// One digraph with a cluster per stream; only the stream named onlyStream when it is
// not empty. An empty string when there is no such stream.
std::string PipelineDot(const ConfigModel& model, const std::string& onlyStream);

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_PIPELINE_GRAPH_H
