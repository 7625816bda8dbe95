#include "vcard_registry.h"

#include <cstdio>
#include <cstdlib>

namespace tinyalsa {

VcardRegistry& VcardRegistry::Instance() {
    // Never destroyed: open handles and late callers may use it during exit.
    static VcardRegistry* s_registry = new VcardRegistry;
    static std::once_flag s_loaded;
    std::call_once(s_loaded, [] { s_registry->LoadEnvironmentFile(); });
    return *s_registry;
}

void VcardRegistry::LoadEnvironmentFile() {
    const char* path = std::getenv("TINYALSA_VCARDS");
    if (path == nullptr || path[0] == '\0') {
        return;
    }
    VcardConfigParser parser;
    if (!parser.ParseFile(path)) {
        std::fprintf(stderr, "tinyalsa: %s\ntinyalsa: no virtual cards loaded from %s\n",
                     parser.Error().c_str(), path);
        return;
    }
    Apply(parser.Entries());
}

std::shared_ptr<VirtualPcm> VcardRegistry::Find(unsigned int card, unsigned int device,
                                                vcard_direction direction) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_pcms.find(Key(card, device, direction));
    return it != m_pcms.end() ? it->second : nullptr;
}

bool VcardRegistry::IsVirtual(unsigned int card) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_cards.count(card) != 0;
}

void VcardRegistry::AddPcm(const PcmSettings& settings) {
    auto pcm = std::make_shared<VirtualPcm>(settings);
    const vcard_pcm_desc& desc = settings.desc;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cards.insert(desc.card);
    m_pcms[Key(desc.card, desc.device, desc.direction)] = pcm;
}

bool VcardRegistry::RemovePcm(unsigned int card, unsigned int device, vcard_direction direction) {
    std::shared_ptr<VirtualPcm> removed;  // released after the lock
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_pcms.find(Key(card, device, direction));
    if (it == m_pcms.end()) {
        return false;
    }
    removed = it->second;
    m_pcms.erase(it);
    return true;
}

void VcardRegistry::AddCard(unsigned int card) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cards.insert(card);
}

bool VcardRegistry::RemoveCard(unsigned int card) {
    std::vector<std::shared_ptr<VirtualPcm>> removed;  // released after the lock
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_pcms.begin(); it != m_pcms.end();) {
        if (std::get<0>(it->first) == card) {
            removed.push_back(it->second);
            it = m_pcms.erase(it);
        } else {
            ++it;
        }
    }
    return m_cards.erase(card) != 0;
}

void VcardRegistry::Reset() {
    std::map<Key, std::shared_ptr<VirtualPcm>> removed;  // released after the lock
    std::lock_guard<std::mutex> lock(m_mutex);
    removed.swap(m_pcms);
    m_cards.clear();
}

void VcardRegistry::Apply(const std::vector<VcardConfigEntry>& entries) {
    std::vector<std::shared_ptr<VirtualPcm>> pcms;
    for (const VcardConfigEntry& entry : entries) {
        pcms.push_back(entry.cardOnly ? nullptr : std::make_shared<VirtualPcm>(entry.settings));
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    for (size_t i = 0; i < entries.size(); ++i) {
        const vcard_pcm_desc& desc = entries[i].settings.desc;
        m_cards.insert(desc.card);
        if (pcms[i] != nullptr) {
            m_pcms[Key(desc.card, desc.device, desc.direction)] = pcms[i];
        }
    }
}

}  // namespace tinyalsa
