// The virtual cards of the process: which cards are virtual and their PCMs. Loads
// the file named by TINYALSA_VCARDS once, on first use.
#ifndef TINYALSA_SRC_VCARD_REGISTRY_H
#define TINYALSA_SRC_VCARD_REGISTRY_H

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <tuple>
#include <vector>

#include "vcard_config_parser.h"
#include "virtual_pcm.h"

namespace tinyalsa {

class VcardRegistry {
  public:
    static VcardRegistry& Instance();

    // Null when the PCM does not exist.
    std::shared_ptr<VirtualPcm> Find(unsigned int card, unsigned int device, vcard_direction direction) const;
    bool IsVirtual(unsigned int card) const;

    // Adds or replaces a PCM; its card becomes virtual.
    void AddPcm(const PcmSettings& settings);
    // Removes one PCM; its card stays virtual. False when it did not exist.
    bool RemovePcm(unsigned int card, unsigned int device, vcard_direction direction);
    void AddCard(unsigned int card);
    // Removes a card and its PCMs. False when it was not virtual.
    bool RemoveCard(unsigned int card);
    void Reset();
    // Adds the cards and PCMs of a parsed file at once.
    void Apply(const std::vector<VcardConfigEntry>& entries);

  private:
    using Key = std::tuple<unsigned int, unsigned int, int>;

    VcardRegistry() = default;
    void LoadEnvironmentFile();

    mutable std::mutex m_mutex;
    std::map<Key, std::shared_ptr<VirtualPcm>> m_pcms;
    std::set<unsigned int> m_cards;
};

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_VCARD_REGISTRY_H
