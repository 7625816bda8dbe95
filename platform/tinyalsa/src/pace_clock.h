// The time line of an open virtual PCM: paces transfers in real time when asked and
// produces the timestamps pcm_get_htimestamp reports.
#ifndef TINYALSA_SRC_PACE_CLOCK_H
#define TINYALSA_SRC_PACE_CLOCK_H

#include <cstdint>
#include <ctime>

#include "tinyalsa/vcard.h"

namespace tinyalsa {

class PaceClock {
  public:
    // `bufferFrames`: how far a paced stream may fall behind before its time line is
    // moved to the present instead of catching up.
    PaceClock(unsigned int rate, unsigned int bufferFrames);

    // Starts a new time line at the next transfer (open, prepare).
    void Restart();
    // Accounts a transfer of `frames` frames; sleeps until its end in real-time mode.
    void Advance(vcard_clock mode, unsigned int frames);

    bool HasRun() const { return m_running; }
    const timespec& Stamp() const { return m_stamp; }

  private:
    int64_t FramesToNs(uint64_t frames) const;

    unsigned int m_rate;
    int64_t m_slackNs;
    bool m_running = false;
    int64_t m_originNs = 0;  // CLOCK_MONOTONIC at the start of the time line
    uint64_t m_frames = 0;   // frames since then
    timespec m_stamp{};
};

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_PACE_CLOCK_H
