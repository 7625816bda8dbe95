// Reads the virtual card configuration file, line by line: "card N" makes a card
// virtual, "pcm key=value ..." describes one PCM (format: README.md of this library).
// The whole text parses or nothing is kept; the error names the line.
#ifndef TINYALSA_SRC_VCARD_CONFIG_PARSER_H
#define TINYALSA_SRC_VCARD_CONFIG_PARSER_H

#include <set>
#include <string>
#include <vector>

#include "vcard_settings.h"

namespace tinyalsa {

struct VcardConfigEntry {
    bool cardOnly = false;  // a "card" line: settings.desc.card only
    int line = 0;
    PcmSettings settings;
};

class VcardConfigParser {
  public:
    // Relative file paths inside the file are taken from the file's directory.
    bool ParseFile(const std::string& path);
    // `name` labels messages; relative file paths are taken from `baseDir` (or the
    // working directory when it is empty).
    bool ParseText(const std::string& text, const std::string& name, const std::string& baseDir = "");

    const std::vector<VcardConfigEntry>& Entries() const { return m_entries; }
    // "<name>:<line>: <reason>" after a failed parse.
    const std::string& Error() const { return m_error; }

  private:
    bool ParseLine(const std::string& line);
    bool ParsePcm(const std::vector<std::string>& tokens);
    bool ApplyKey(const std::string& key, const std::string& value, VcardConfigEntry* entry);
    bool ParseSource(const std::string& value, SourceSettings* source);
    bool ParseSink(const std::string& value, SinkSettings* sink);
    bool ParseFormats(const std::string& value, unsigned int* formats);
    bool CheckEntry(const VcardConfigEntry& entry, const std::set<std::string>& keys);
    std::string ResolvePath(const std::string& path) const;
    bool Fail(const std::string& reason);

    std::string m_name;
    std::string m_baseDir;
    int m_line = 0;
    std::vector<VcardConfigEntry> m_entries;
    std::string m_error;
};

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_VCARD_CONFIG_PARSER_H
