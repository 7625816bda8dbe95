// The application side of the configuration tests: load the AI and AO lists, create
// every device from them, load the stream list, and take everything down again, as a
// board application does. Also the virtual playback cards the AOs open.
#ifndef AUDIOMW_TESTS_CONFIG_CONFIG_APP_H
#define AUDIOMW_TESTS_CONFIG_CONFIG_APP_H

#include <tinyalsa/vcard.h>

#include <string>
#include <vector>

#include "audio_config.h"
#include "test_support.h"

namespace config_test {

struct App {
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;

    // Loads the three lists and creates every AI and AO whose id is in skipAi/skipAo's
    // complement. Returns false (with a test failure) when a step fails.
    bool Start(const std::vector<int>& skipAi = {});
    // The loaded stream configuration named `name`; a test failure and null if none.
    tagASTREAM_XML_CFG_S* Stream(const std::string& name);
    // Stops and destroys both stream slots, then closes, disables and deletes every AI
    // and disables and deletes every AO.
    static void Stop();
};

// Playback PCM (card, 0) with a memory sink, on the given clock.
void AddPlaybackCard(unsigned int card, const char* clock = "free");
std::vector<uint8_t> SinkBytes(unsigned int card);
long SinkSize(unsigned int card);

}  // namespace config_test

#endif  // AUDIOMW_TESTS_CONFIG_CONFIG_APP_H
