#include "vcard_config_parser.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "pcm_format.h"

namespace tinyalsa {
namespace {

constexpr double kDefaultToneAmplitude = 16384;

// Splits a line into words at blanks; double quotes group blanks into a word (\" and
// \\ escape inside them) and an unquoted '#' starts a comment. False on an open quote.
bool Tokenize(const std::string& line, std::vector<std::string>* tokens) {
    std::string word;
    bool inWord = false;
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (quoted) {
            if (c == '\\' && i + 1 < line.size()) {
                word += line[++i];
            } else if (c == '"') {
                quoted = false;
            } else {
                word += c;
            }
            continue;
        }
        if (c == '#') {
            break;
        }
        if (c == ' ' || c == '\t' || c == '\r') {
            if (inWord) {
                tokens->push_back(word);
                word.clear();
                inWord = false;
            }
            continue;
        }
        inWord = true;
        if (c == '"') {
            quoted = true;
        } else {
            word += c;
        }
    }
    if (inWord) {
        tokens->push_back(word);
    }
    return !quoted;
}

bool ParseUnsigned(const std::string& text, unsigned int* value) {
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    unsigned long long parsed = std::strtoull(text.c_str(), nullptr, 10);
    if (parsed > UINT_MAX) {
        return false;
    }
    *value = static_cast<unsigned int>(parsed);
    return true;
}

// "N" or "N-M".
bool ParseRange(const std::string& text, unsigned int* min, unsigned int* max) {
    size_t dash = text.find('-');
    if (dash == std::string::npos) {
        return ParseUnsigned(text, min) && ParseUnsigned(text, max);
    }
    return ParseUnsigned(text.substr(0, dash), min) && ParseUnsigned(text.substr(dash + 1), max);
}

bool ParseBool(const std::string& text, bool* value) {
    if (text == "yes" || text == "true" || text == "on" || text == "1") {
        *value = true;
        return true;
    }
    if (text == "no" || text == "false" || text == "off" || text == "0") {
        *value = false;
        return true;
    }
    return false;
}

bool ParseDouble(const std::string& text, double* value) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    *value = std::strtod(text.c_str(), &end);
    return end != nullptr && *end == '\0' && std::isfinite(*value);
}

// "F" or "F@A".
bool ParseTone(const std::string& text, vcard_tone* tone) {
    size_t at = text.find('@');
    tone->amplitude = kDefaultToneAmplitude;
    if (at == std::string::npos) {
        return ParseDouble(text, &tone->frequency);
    }
    return ParseDouble(text.substr(0, at), &tone->frequency) &&
           ParseDouble(text.substr(at + 1), &tone->amplitude);
}

std::vector<std::string> SplitCommas(const std::string& text) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    std::string part;
    while (std::getline(stream, part, ',')) {
        parts.push_back(part);
    }
    if (!text.empty() && text.back() == ',') {
        parts.push_back("");
    }
    return parts;
}

bool HasPrefix(const std::string& text, const char* prefix, std::string* rest) {
    size_t length = std::strlen(prefix);
    if (text.compare(0, length, prefix) != 0) {
        return false;
    }
    *rest = text.substr(length);
    return true;
}

bool ParseFileKind(const std::string& value, vcard_file_kind* kind, std::string* path) {
    if (HasPrefix(value, "raw:", path)) {
        *kind = VCARD_FILE_RAW;
        return true;
    }
    if (HasPrefix(value, "wav:", path)) {
        *kind = VCARD_FILE_WAV;
        return true;
    }
    return false;
}

}  // namespace

bool VcardConfigParser::ParseFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        m_error = "cannot read '" + path + "': " + std::strerror(errno);
        return false;
    }
    std::stringstream text;
    text << file.rdbuf();
    size_t slash = path.rfind('/');
    return ParseText(text.str(), path, slash == std::string::npos ? "" : path.substr(0, slash));
}

bool VcardConfigParser::ParseText(const std::string& text, const std::string& name,
                                  const std::string& baseDir) {
    m_name = name;
    m_baseDir = baseDir;
    m_line = 0;
    m_entries.clear();
    m_error.clear();
    std::stringstream stream(text);
    std::string line;
    while (std::getline(stream, line)) {
        ++m_line;
        if (!ParseLine(line)) {
            m_entries.clear();
            return false;
        }
    }
    return true;
}

bool VcardConfigParser::Fail(const std::string& reason) {
    m_error = m_name + ":" + std::to_string(m_line) + ": " + reason;
    return false;
}

bool VcardConfigParser::ParseLine(const std::string& line) {
    std::vector<std::string> tokens;
    if (!Tokenize(line, &tokens)) {
        return Fail("unterminated quote");
    }
    if (tokens.empty()) {
        return true;
    }
    if (tokens[0] == "pcm") {
        return ParsePcm(tokens);
    }
    if (tokens[0] == "card") {
        VcardConfigEntry entry;
        entry.cardOnly = true;
        entry.line = m_line;
        if (tokens.size() != 2 || !ParseUnsigned(tokens[1], &entry.settings.desc.card)) {
            return Fail("expected 'card N'");
        }
        m_entries.push_back(entry);
        return true;
    }
    return Fail("unknown statement '" + tokens[0] + "' (expected 'pcm' or 'card')");
}

bool VcardConfigParser::ParsePcm(const std::vector<std::string>& tokens) {
    VcardConfigEntry entry;
    entry.line = m_line;
    vcard_pcm_desc_init(&entry.settings.desc, 0, 0, VCARD_PLAYBACK);
    std::set<std::string> keys;
    for (size_t i = 1; i < tokens.size(); ++i) {
        size_t equals = tokens[i].find('=');
        if (equals == std::string::npos || equals == 0) {
            return Fail("expected key=value, got '" + tokens[i] + "'");
        }
        std::string key = tokens[i].substr(0, equals);
        if (!keys.insert(key).second) {
            return Fail("key '" + key + "' given twice");
        }
        if (!ApplyKey(key, tokens[i].substr(equals + 1), &entry)) {
            return false;
        }
    }
    if (!CheckEntry(entry, keys)) {
        return false;
    }
    m_entries.push_back(entry);
    return true;
}

bool VcardConfigParser::ApplyKey(const std::string& key, const std::string& value, VcardConfigEntry* entry) {
    PcmSettings& s = entry->settings;
    vcard_pcm_desc& d = s.desc;
    FaultPlan& f = s.faults;
    bool ok = true;
    if (key == "card") {
        ok = ParseUnsigned(value, &d.card);
    } else if (key == "device") {
        ok = ParseUnsigned(value, &d.device);
    } else if (key == "dir") {
        ok = value == "playback" || value == "capture";
        d.direction = value == "capture" ? VCARD_CAPTURE : VCARD_PLAYBACK;
    } else if (key == "channels") {
        ok = ParseRange(value, &d.channels_min, &d.channels_max);
    } else if (key == "rates") {
        ok = ParseRange(value, &d.rate_min, &d.rate_max);
    } else if (key == "formats") {
        return ParseFormats(value, &d.formats);
    } else if (key == "source") {
        return ParseSource(value, &s.source);
    } else if (key == "loop") {
        ok = ParseBool(value, &s.source.loop);
    } else if (key == "sink") {
        return ParseSink(value, &s.sink);
    } else if (key == "clock") {
        ok = value == "free" || value == "realtime" || value == "frames";
        s.clock = value == "realtime" ? VCARD_CLOCK_REALTIME
                  : value == "frames" ? VCARD_CLOCK_FRAMES
                                      : VCARD_CLOCK_FREE;
    } else if (key == "absent") {
        ok = ParseBool(value, &f.absent);
    } else if (key == "open-error") {
        f.failOpen = true;
        f.openError = value;
    } else if (key == "prepare") {
        ok = value == "ok" || value == "fail" || value == "unready";
        f.prepare = value == "fail"      ? VCARD_PREPARE_FAIL
                    : value == "unready" ? VCARD_PREPARE_UNREADY
                                         : VCARD_PREPARE_OK;
    } else if (key == "fail-at") {
        ok = ParseUnsigned(value, &f.transferFailAt);
    } else if (key == "fail-count") {
        ok = ParseUnsigned(value, &f.transferFailCount) && f.transferFailCount > 0;
    } else if (key == "fail-kind") {
        ok = value == "xrun" || value == "io";
        f.transferKind = value == "io" ? VCARD_TRANSFER_IO : VCARD_TRANSFER_XRUN;
    } else {
        return Fail("unknown key '" + key + "'");
    }
    return ok ? true : Fail("bad value '" + value + "' for " + key);
}

bool VcardConfigParser::ParseFormats(const std::string& value, unsigned int* formats) {
    *formats = 0;
    for (const std::string& item : SplitCommas(value)) {
        int code = -1;
        unsigned int number = 0;
        if (ParseUnsigned(item, &number) && number < PCM_FORMAT_MAX) {
            code = static_cast<int>(number);
        }
        for (int c = 0; c < PCM_FORMAT_MAX && code < 0; ++c) {
            const char* name = FormatName(static_cast<pcm_format>(c));
            if (name != nullptr && item == name) {
                code = c;
            }
        }
        if (code < 0) {
            return Fail("unknown format '" + item + "'");
        }
        if (!IsVirtualFormat(static_cast<pcm_format>(code))) {
            return Fail("format '" + item +
                        "' cannot be served by a virtual PCM (s16_le, s32_le, s32_slot_le)");
        }
        *formats |= VCARD_FORMAT_BIT(code);
    }
    return true;
}

bool VcardConfigParser::ParseSource(const std::string& value, SourceSettings* source) {
    std::string rest;
    if (value == "silence") {
        source->kind = SourceKind::kSilence;
    } else if (value == "pattern") {
        source->kind = SourceKind::kPattern;
    } else if (HasPrefix(value, "sine:", &rest)) {
        source->kind = SourceKind::kSine;
        source->tones.clear();
        for (const std::string& item : SplitCommas(rest)) {
            vcard_tone tone{};
            if (!ParseTone(item, &tone)) {
                return Fail("bad tone '" + item + "' (expected FREQUENCY or FREQUENCY@AMPLITUDE)");
            }
            source->tones.push_back(tone);
        }
        std::string error;
        if (!ValidateTones(source->tones, &error)) {
            return Fail(error);
        }
    } else if (ParseFileKind(value, &source->fileKind, &rest) && !rest.empty()) {
        source->kind = SourceKind::kFile;
        source->path = ResolvePath(rest);
    } else {
        return Fail("unknown source '" + value + "' (silence, pattern, sine:F[@A],..., raw:PATH, wav:PATH)");
    }
    return true;
}

bool VcardConfigParser::ParseSink(const std::string& value, SinkSettings* sink) {
    std::string rest;
    if (value == "discard") {
        sink->kind = SinkKind::kDiscard;
    } else if (value == "memory") {
        sink->kind = SinkKind::kMemory;
        sink->capacity = kDefaultMemoryCapacity;
    } else if (HasPrefix(value, "memory:", &rest)) {
        unsigned int bytes = 0;
        if (!ParseUnsigned(rest, &bytes) || bytes == 0) {
            return Fail("bad memory capacity '" + rest + "' (expected bytes > 0)");
        }
        sink->kind = SinkKind::kMemory;
        sink->capacity = bytes;
    } else if (ParseFileKind(value, &sink->fileKind, &rest) && !rest.empty()) {
        sink->kind = SinkKind::kFile;
        sink->path = ResolvePath(rest);
    } else {
        return Fail("unknown sink '" + value + "' (discard, memory[:BYTES], raw:PATH, wav:PATH)");
    }
    return true;
}

bool VcardConfigParser::CheckEntry(const VcardConfigEntry& entry, const std::set<std::string>& keys) {
    const PcmSettings& s = entry.settings;
    if (keys.count("card") == 0) {
        return Fail("missing card=");
    }
    if (keys.count("dir") == 0) {
        return Fail("missing dir= (playback or capture)");
    }
    bool capture = s.desc.direction == VCARD_CAPTURE;
    if (keys.count("source") != 0 && !capture) {
        return Fail("source= applies to capture PCMs");
    }
    if (keys.count("sink") != 0 && capture) {
        return Fail("sink= applies to playback PCMs");
    }
    if (keys.count("loop") != 0 && s.source.kind != SourceKind::kFile) {
        return Fail("loop= needs a raw: or wav: source");
    }
    std::string error;
    if (!ValidateDesc(s.desc, &error)) {
        return Fail(error);
    }
    for (const VcardConfigEntry& other : m_entries) {
        const vcard_pcm_desc& o = other.settings.desc;
        if (!other.cardOnly && o.card == s.desc.card && o.device == s.desc.device &&
            o.direction == s.desc.direction) {
            return Fail(PcmName(o.card, o.device, o.direction) + " already defined on line " +
                        std::to_string(other.line));
        }
    }
    return true;
}

std::string VcardConfigParser::ResolvePath(const std::string& path) const {
    if (path[0] == '/' || m_baseDir.empty()) {
        return path;
    }
    return m_baseDir + "/" + path;
}

}  // namespace tinyalsa
