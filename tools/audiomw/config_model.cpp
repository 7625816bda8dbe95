#include "config_model.h"

#include <strings.h>
#include <tinyxml2.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace audiomw_tool {

namespace {

using tinyxml2::XMLElement;

constexpr size_t kMaxComboMembers = 4;
constexpr size_t kMaxSwapMap = 20;

struct NodeRow {
    const char* type;
    std::vector<const char*> keys;  // integer attributes in reading order
    size_t required;                // the first `required` keys must be present
};

const NodeRow kNodeRows[] = {
    {"Output", {"AoId", "ChnOffset", "ChnCnt", "AudioSourceId", "DumpFrameCount"}, 3},
    {"Swap", {}, 0},
    {"Split", {"ChnOffset", "ChnCntA", "ChnCntB"}, 3},
    {"Merge", {"ChnOffset", "ChnCntA", "ChnCntB"}, 3},
    {"Mixin", {"TargetIndex", "ChnOffset", "ChnCnt"}, 3},
    {"Dump", {"ChnOffset", "ChnCnt"}, 2},
    {"OrvaneAlg",
     {"MicChnOffset", "MicChnCnt", "LineInChnCnt", "RefChnOffset", "ExRefChnOffset", "AllRefChnOffset"},
     4},
};

class Walker {
  public:
    explicit Walker(std::vector<Diagnostic>* warnings) : m_warnings(warnings) {}

    void Warn(const XMLElement* at, const char* fmt, ...) __attribute__((format(printf, 3, 4))) {
        char text[512];
        va_list args;
        va_start(args, fmt);
        std::vsnprintf(text, sizeof text, fmt, args);
        va_end(args);
        m_warnings->push_back({at->GetLineNum(), false, text});
    }

  private:
    std::vector<Diagnostic>* m_warnings;
};

bool SameText(const char* a, const char* b) {
    return a != nullptr && strcasecmp(a, b) == 0;
}

const char* Text(const XMLElement* e, const char* name) {
    const tinyxml2::XMLAttribute* attr = e->FindAttribute(name);
    return attr ? attr->Value() : nullptr;
}

void ReadInt(const XMLElement* e, const char* name, int* field) {
    const tinyxml2::XMLAttribute* attr = e->FindAttribute(name);
    int value = 0;
    if (attr && attr->QueryIntValue(&value) == tinyxml2::XML_SUCCESS) {
        *field = value;
    }
}

int RateFromName(const char* name) {
    for (int rate : {8000, 16000, 32000}) {
        if (SameText(name, (std::to_string(rate / 1000) + "KHZ").c_str())) {
            return rate;
        }
    }
    return 48000;
}

std::vector<int> NumberList(const char* text, size_t max) {
    std::vector<int> items;
    const char* p = text;
    while (true) {
        if (items.size() < max) {
            items.push_back(static_cast<int>(std::strtol(p, nullptr, 10)));
        }
        const char* colon = std::strchr(p, ':');
        if (colon == nullptr) {
            return items;
        }
        p = colon + 1;
    }
}

// Settles ids as the loaders do: explicit ids first, automatic ones after, lowest free.
template <typename T>
void SettleIds(std::vector<T>& list, std::vector<const XMLElement*>& elements, const char* kind,
               Walker& walk) {
    unsigned mask = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i].id == -1) {
            walk.Warn(elements[i], "Get Id of %s[%s] failed, auto set", kind, list[i].name.c_str());
        } else if (mask & (1u << (list[i].id & 31))) {
            walk.Warn(elements[i], "Id of %s[%s] has been used, auto set", kind, list[i].name.c_str());
            list[i].id = -1;
        } else {
            mask |= 1u << (list[i].id & 31);
            list[i].id = list[i].id < 0 ? -1 : list[i].id;
        }
    }
    for (auto& item : list) {
        int id = 0;
        while (item.id < 0 && id < 31 && (mask & (1u << id))) {
            ++id;
        }
        if (item.id < 0) {
            mask |= 1u << id;
            item.id = id;
        }
    }
}

// Up to max ids of "AiIdList", with the loader's warning when there are more.
std::vector<int> ComboMembers(const XMLElement* e, const std::string& where, Walker& walk) {
    std::vector<int> ids = NumberList(Text(e, "AiIdList"), 1000);
    if (ids.size() > kMaxComboMembers) {
        walk.Warn(e, "AiIdList of %s holds %zu ids, only the first %zu kept", where.c_str(), ids.size(),
                  kMaxComboMembers);
        ids.resize(kMaxComboMembers);
    }
    return ids;
}

void ReadDeviceElement(const XMLElement* e, bool isAi, DeviceSection* dev, Walker& walk) {
    const char* type = Text(e, "Type");
    const char* kind = isAi ? "AI" : "AO";
    if (type == nullptr) {
        dev->kind = DevKind::kUnknown;
        walk.Warn(e, "Missing attr Type of <Device> for %s[%s], type set to -1", kind, dev->name.c_str());
    } else if (SameText(type, "Alsa")) {
        dev->kind = DevKind::kAlsa;
        ReadInt(e, "CardId", &dev->card);
        ReadInt(e, "DevId", &dev->device);
    } else if (isAi && SameText(type, "Combo")) {
        dev->kind = DevKind::kCombo;
        dev->comboLine = e->GetLineNum();
        dev->members =
            Text(e, "AiIdList") ? ComboMembers(e, "AI[" + dev->name + "]", walk) : std::vector<int>();
    } else if (isAi && SameText(type, "Afile")) {
        dev->kind = DevKind::kFile;
        const char* path = Text(e, "FilePath");
        dev->filePath = path ? std::string(path).substr(0, 39) : "";
    } else {
        dev->kind = DevKind::kUnknown;
        walk.Warn(e, "Un-support device type %s for %s", type, kind);
    }
}

// "Id" and "Name" of a section, the index-th of its kind (from 1).
template <typename T>
void ReadHead(const XMLElement* section, const char* kind, int index, T* out, Walker& walk) {
    out->line = section->GetLineNum();
    ReadInt(section, "Id", &out->id);
    const char* name = Text(section, "Name");
    out->name = name ? std::string(name).substr(0, 32) : "";
    if (name == nullptr) {
        walk.Warn(section, "Missing attr Name of %s %d, name left empty", kind, index);
    }
}

void ReadSampleRate(const XMLElement* e, DeviceSection* dev, const char* kind, Walker& walk) {
    if (Text(e, "Cur") == nullptr) {
        walk.Warn(e, "Missing attr Cur of <SampleRate> for %s[%s], rate unchanged", kind, dev->name.c_str());
        return;
    }
    dev->rate = RateFromName(Text(e, "Cur"));
}

DeviceSection ReadDeviceSection(const XMLElement* section, bool isAi, int index, Walker& walk) {
    DeviceSection dev;
    ReadHead(section, isAi ? "AI" : "AO", index, &dev, walk);
    for (const XMLElement* c = section->FirstChildElement(); c; c = c->NextSiblingElement()) {
        if (SameText(c->Value(), "Device")) {
            ReadDeviceElement(c, isAi, &dev, walk);
        } else if (SameText(c->Value(), "SampleRate")) {
            ReadSampleRate(c, &dev, isAi ? "AI" : "AO", walk);
        } else if (SameText(c->Value(), "Channel")) {
            ReadInt(c, "Cur", &dev.channels);
        } else if (SameText(c->Value(), "FrameSize")) {
            ReadInt(c, "Cur", &dev.frames);
        } else if (!SameText(c->Value(), "Volume")) {
            walk.Warn(c, "Un-support sub node <%s> for %s", c->Value(), isAi ? "AI" : "AO");
        }
    }
    return dev;
}

std::vector<DeviceSection> ReadDeviceSections(const XMLElement* root, bool isAi, Walker& walk) {
    std::vector<DeviceSection> list;
    std::vector<const XMLElement*> elements;
    for (const XMLElement* e = root->FirstChildElement(isAi ? "AI" : "AO"); e;
         e = e->NextSiblingElement(isAi ? "AI" : "AO")) {
        list.push_back(ReadDeviceSection(e, isAi, static_cast<int>(list.size()) + 1, walk));
        elements.push_back(e);
    }
    SettleIds(list, elements, isAi ? "AI" : "AO", walk);
    return list;
}

// An <AiAdj> or <AoAdj>: the loaded record of that id with the element's changes.
void ApplyAdjustment(const XMLElement* e, bool isAi, const std::string& stream,
                     std::vector<DeviceSection>* records, const std::vector<DeviceSection>& loaded,
                     Walker& walk) {
    int id = -1;
    ReadInt(e, "Id", &id);
    const DeviceSection* base = FindById(loaded, id);
    bool usable = base && (base->kind == DevKind::kAlsa || (isAi && base->kind != DevKind::kUnknown));
    if (!usable) {
        walk.Warn(e, "Bad %s[%d] for ASTREAM adjustment, skip", isAi ? "AI" : "AO", id);
        return;
    }
    DeviceSection adjusted = *base;
    adjusted.line = e->GetLineNum();
    if (adjusted.kind == DevKind::kCombo && Text(e, "AiIdList")) {
        adjusted.members =
            ComboMembers(e, "AiAdj for AI[" + std::to_string(id) + "] in ASTREAM[" + stream + "]", walk);
        adjusted.comboLine = e->GetLineNum();
    } else if (adjusted.kind == DevKind::kFile && Text(e, "FilePath")) {
        adjusted.filePath = std::string(Text(e, "FilePath")).substr(0, 39);
    } else if (adjusted.kind == DevKind::kAlsa) {
        ReadInt(e, "CardId", &adjusted.card);
        ReadInt(e, "DevId", &adjusted.device);
    }
    if (Text(e, "SampleRate") == nullptr) {
        walk.Warn(e, "No SampleRate in <%s> of %s[%d] for ASTREAM[%s], keep %d", isAi ? "AiAdj" : "AoAdj",
                  isAi ? "AI" : "AO", id, stream.c_str(), adjusted.rate);
    } else {
        adjusted.rate = RateFromName(Text(e, "SampleRate"));
    }
    ReadInt(e, "Channel", &adjusted.channels);
    ReadInt(e, "FrameSize", &adjusted.frames);
    for (auto& record : *records) {
        if (record.id == id) {
            record = adjusted;
        }
    }
}

void WarnBadNode(const NodeSection& node, const XMLElement* e, Walker& walk) {
    if (node.type == "Swap") {
        walk.Warn(e, "Ignore bad <Node type=\"Swap\" Map=\"NULL\"/>");
        return;
    }
    std::string text = "Ignore bad <Node type=\"" + node.type + "\"";
    if (node.type == "Dump") {
        text += " Path=\"" + node.path + "\"";
    }
    const NodeRow* row = nullptr;
    for (const NodeRow& r : kNodeRows) {
        row = node.type == r.type ? &r : row;
    }
    for (size_t i = 0; i < row->required; ++i) {
        text += std::string(" ") + row->keys[i] + "=\"" + std::to_string(node.values[i].second) + "\"";
    }
    text += node.type == "OrvaneAlg" ? " />" : "/>";
    walk.Warn(e, "%s", text.c_str());
}

bool ReadNode(const XMLElement* e, const NodeRow& row, const std::string& stream, int number,
              NodeSection* node, Walker& walk) {
    node->type = row.type;
    bool complete = true;
    for (size_t i = 0; i < row.keys.size(); ++i) {
        int value = -1;
        ReadInt(e, row.keys[i], &value);
        node->values.emplace_back(row.keys[i], value);
        complete = complete && (i >= row.required || value != -1);
    }
    if (node->type == "Swap") {
        const char* map = Text(e, "Map");
        node->map = map ? NumberList(map, 1000) : std::vector<int>();
        if (node->map.size() > kMaxSwapMap) {
            walk.Warn(e, "Map of Swap node %d in ASTREAM[%s] holds %zu entries, only the first %zu kept",
                      number, stream.c_str(), node->map.size(), kMaxSwapMap);
            node->map.resize(kMaxSwapMap);
        }
        return map != nullptr;
    }
    if (node->type == "Dump") {
        const char* path = Text(e, "Path");
        node->path = path ? std::string(path).substr(0, 63) : "";
        return complete && path != nullptr;
    }
    return complete;
}

void ReadNodes(const XMLElement* stream, StreamSection* out, Walker& walk) {
    for (const XMLElement* e = stream->FirstChildElement("Node"); e; e = e->NextSiblingElement("Node")) {
        int number = static_cast<int>(out->nodes.size()) + 1;
        const char* type = Text(e, "Type");
        const NodeRow* row = nullptr;
        for (const NodeRow& r : kNodeRows) {
            row = SameText(type, r.type) ? &r : row;
        }
        if (type == nullptr || row == nullptr) {
            type ? walk.Warn(e, "Node %d ignored because unknown Type \"%s\"", number, type)
                 : walk.Warn(e, "Node %d ignored because missing attr Type", number);
            continue;
        }
        NodeSection node;
        node.line = e->GetLineNum();
        if (ReadNode(e, *row, out->name, number, &node, walk)) {
            out->nodes.push_back(node);
        } else {
            WarnBadNode(node, e, walk);
        }
    }
}

StreamSection ReadStream(const XMLElement* e, const ConfigModel& model, int index, Walker& walk) {
    StreamSection stream;
    ReadHead(e, "ASTREAM", index, &stream, walk);
    ReadInt(e, "AiId", &stream.aiId);
    ReadInt(e, "Worker", &stream.workers);
    stream.ai = model.ai;
    stream.ao = model.ao;
    for (const XMLElement* a = e->FirstChildElement("AiAdj"); a; a = a->NextSiblingElement("AiAdj")) {
        ApplyAdjustment(a, true, stream.name, &stream.ai, model.ai, walk);
    }
    for (const XMLElement* a = e->FirstChildElement("AoAdj"); a; a = a->NextSiblingElement("AoAdj")) {
        ApplyAdjustment(a, false, stream.name, &stream.ao, model.ao, walk);
    }
    ReadNodes(e, &stream, walk);
    return stream;
}

}  // namespace

int NodeSection::Get(const std::string& key) const {
    for (const auto& value : values) {
        if (value.first == key) {
            return value.second;
        }
    }
    return -1;
}

const DeviceSection* FindById(const std::vector<DeviceSection>& list, int id) {
    for (const auto& item : list) {
        if (item.id == id) {
            return &item;
        }
    }
    return nullptr;
}

bool LoadConfigModel(const std::string& xml, ConfigModel* model, std::vector<Diagnostic>* warnings,
                     std::string* error, int* errorLine) {
    *errorLine = 0;
    tinyxml2::XMLDocument doc;
    if (doc.Parse(xml.c_str(), xml.size()) != tinyxml2::XML_SUCCESS) {
        *errorLine = doc.ErrorLineNum();
        *error = std::string("not well-formed XML (") + doc.ErrorName() + ")";
        return false;
    }
    const XMLElement* root = doc.FirstChildElement("Audio");
    if (root == nullptr) {
        *error = "<Audio> not found";
        return false;
    }
    Walker walk(warnings);
    model->ai = ReadDeviceSections(root, true, walk);
    model->ao = ReadDeviceSections(root, false, walk);
    std::vector<const XMLElement*> elements;
    for (const XMLElement* e = root->FirstChildElement("ASTREAM"); e; e = e->NextSiblingElement("ASTREAM")) {
        model->streams.push_back(ReadStream(e, *model, static_cast<int>(model->streams.size()) + 1, walk));
        elements.push_back(e);
    }
    SettleIds(model->streams, elements, "ASTREAM", walk);
    return true;
}

}  // namespace audiomw_tool
