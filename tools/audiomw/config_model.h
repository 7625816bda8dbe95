// A configuration file read the way the library's loaders read it, keeping each
// element's line: the AI, AO and stream sections with their ids settled and the
// stream adjustments applied, plus the warnings the loaders would log.
#ifndef AUDIOMW_TOOL_CONFIG_MODEL_H
#define AUDIOMW_TOOL_CONFIG_MODEL_H

#include <string>
#include <vector>

namespace audiomw_tool {

// One finding, tied to the line of the element it concerns.
struct Diagnostic {
    int line = 0;
    bool error = false;
    std::string text;
};

enum class DevKind { kAlsa, kCombo, kFile, kUnknown };

// What an AI or AO section sets (AO sections use kind, card, device and the formats).
struct DeviceSection {
    int line = 0;
    int id = -1;
    std::string name;
    DevKind kind = DevKind::kAlsa;
    int card = 0;
    int device = 0;
    int comboLine = 0;
    std::vector<int> members;  // combo member ids, at most 4
    std::string filePath;
    int rate = 0;
    int channels = 0;
    int frames = 0;  // frame length (AI) or frame size (AO)
};

struct NodeSection {
    int line = 0;
    std::string type;  // "Output", "Swap", ... as the table spells it
    // Integer attributes by name, -1 when absent, in the order of the node's row.
    std::vector<std::pair<std::string, int>> values;
    std::vector<int> map;  // Swap: the items of "Map"
    std::string path;      // Dump
    int Get(const std::string& key) const;
};

struct StreamSection {
    int line = 0;
    int id = -1;
    std::string name;
    int aiId = 0;
    int workers = 0;
    // The AI and AO records as the stream's adjustments leave them (the loaded ones
    // where the stream has none).
    std::vector<DeviceSection> ai;
    std::vector<DeviceSection> ao;
    std::vector<NodeSection> nodes;
};

struct ConfigModel {
    std::vector<DeviceSection> ai;
    std::vector<DeviceSection> ao;
    std::vector<StreamSection> streams;
};

// Reads XML text. False with *error and *errorLine (0 when none) set when it does not
// parse or has no <Audio> root. Warnings of the loaders go to *warnings.
bool LoadConfigModel(const std::string& xml, ConfigModel* model, std::vector<Diagnostic>* warnings,
                     std::string* error, int* errorLine);

const DeviceSection* FindById(const std::vector<DeviceSection>& list, int id);

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_CONFIG_MODEL_H
