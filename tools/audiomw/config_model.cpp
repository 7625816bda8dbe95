#include "config_model.h"

#include <strings.h>
#include <tinyxml2.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace audiomw_tool {

namespace {

using tinyxml2::XMLElement;

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

void ReadDeviceElement(const XMLElement* e, bool isAi, DeviceSection* dev, Walker& walk) {
    const char* type = Text(e, "Type");
    const char* kind = isAi ? "AI" : "AO";
    if (SameText(type, "Alsa")) {
        dev->kind = DevKind::kAlsa;
        ReadInt(e, "CardId", &dev->card);
        ReadInt(e, "DevId", &dev->device);
    } else if (isAi && SameText(type, "Combo")) {
        dev->kind = DevKind::kCombo;
        dev->comboLine = e->GetLineNum();
        const char* list = Text(e, "AiIdList");
        dev->members = list ? NumberList(list, 4) : std::vector<int>();
    } else if (isAi && SameText(type, "Afile")) {
        dev->kind = DevKind::kFile;
        const char* path = Text(e, "FilePath");
        dev->filePath = path ? std::string(path).substr(0, 39) : "";
    } else {
        dev->kind = DevKind::kUnknown;
        walk.Warn(e, "Un-support device type %s for %s", type ? type : "(none)", kind);
    }
}

DeviceSection ReadDeviceSection(const XMLElement* section, bool isAi, Walker& walk) {
    DeviceSection dev;
    dev.line = section->GetLineNum();
    ReadInt(section, "Id", &dev.id);
    const char* name = Text(section, "Name");
    dev.name = name ? std::string(name).substr(0, 32) : "";
    for (const XMLElement* c = section->FirstChildElement(); c; c = c->NextSiblingElement()) {
        if (SameText(c->Value(), "Device")) {
            ReadDeviceElement(c, isAi, &dev, walk);
        } else if (SameText(c->Value(), "SampleRate")) {
            dev.rate = Text(c, "Cur") ? RateFromName(Text(c, "Cur")) : dev.rate;
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
        list.push_back(ReadDeviceSection(e, isAi, walk));
        elements.push_back(e);
    }
    SettleIds(list, elements, isAi ? "AI" : "AO", walk);
    return list;
}

// An <AiAdj> or <AoAdj>: the loaded record of that id with the element's changes.
void ApplyAdjustment(const XMLElement* e, bool isAi, std::vector<DeviceSection>* records,
                     const std::vector<DeviceSection>& loaded, Walker& walk) {
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
        adjusted.members = NumberList(Text(e, "AiIdList"), 4);
        adjusted.comboLine = e->GetLineNum();
    } else if (adjusted.kind == DevKind::kFile && Text(e, "FilePath")) {
        adjusted.filePath = std::string(Text(e, "FilePath")).substr(0, 39);
    } else if (adjusted.kind == DevKind::kAlsa) {
        ReadInt(e, "CardId", &adjusted.card);
        ReadInt(e, "DevId", &adjusted.device);
    }
    adjusted.rate = Text(e, "SampleRate") ? RateFromName(Text(e, "SampleRate")) : adjusted.rate;
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

bool ReadNode(const XMLElement* e, const NodeRow& row, NodeSection* node) {
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
        node->map = map ? NumberList(map, 64) : std::vector<int>();
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
        if (ReadNode(e, *row, &node)) {
            out->nodes.push_back(node);
        } else {
            WarnBadNode(node, e, walk);
        }
    }
}

StreamSection ReadStream(const XMLElement* e, const ConfigModel& model, Walker& walk) {
    StreamSection stream;
    stream.line = e->GetLineNum();
    ReadInt(e, "Id", &stream.id);
    const char* name = Text(e, "Name");
    stream.name = name ? std::string(name).substr(0, 32) : "";
    ReadInt(e, "AiId", &stream.aiId);
    ReadInt(e, "Worker", &stream.workers);
    stream.ai = model.ai;
    stream.ao = model.ao;
    for (const XMLElement* a = e->FirstChildElement("AiAdj"); a; a = a->NextSiblingElement("AiAdj")) {
        ApplyAdjustment(a, true, &stream.ai, model.ai, walk);
    }
    for (const XMLElement* a = e->FirstChildElement("AoAdj"); a; a = a->NextSiblingElement("AoAdj")) {
        ApplyAdjustment(a, false, &stream.ao, model.ao, walk);
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
        model->streams.push_back(ReadStream(e, *model, walk));
        elements.push_back(e);
    }
    SettleIds(model->streams, elements, "ASTREAM", walk);
    return true;
}

}  // namespace audiomw_tool
