// What no loader checks in a configuration: each stream's channel arithmetic node by
// node, outputs against their AOs, AI and AO ids, worker counts, combos and dump
// folders. Findings are errors (the stream fails or its audio is wrong) or warnings.
#ifndef AUDIOMW_TOOL_CONFIG_CHECKER_H
#define AUDIOMW_TOOL_CONFIG_CHECKER_H

#include <string>
#include <vector>

#include "config_model.h"

namespace audiomw_tool {

// Appends the findings for model to *out. Relative dump paths are taken from baseDir.
void CheckConfig(const ConfigModel& model, const std::string& baseDir, std::vector<Diagnostic>* out);

// The loader warnings and the findings of xml, sorted by line, as
// "file:line: warning: text" lines. *errors counts the errors; a document that does not
// parse is one error on the line tinyxml2 names.
std::vector<std::string> CheckConfigText(const std::string& xml, const std::string& file,
                                         const std::string& baseDir, int* errors);

// The channel count a stream of ai sees: the AI's own, or a combo's members' sum.
int StreamChannels(const std::vector<DeviceSection>& records, const DeviceSection& ai);
// The initial grouping: one group, or one per combo member.
std::vector<int> InitialGroups(const std::vector<DeviceSection>& records, const DeviceSection& ai);

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_CONFIG_CHECKER_H
