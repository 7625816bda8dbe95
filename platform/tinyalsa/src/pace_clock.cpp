#include "pace_clock.h"

#include <cerrno>

namespace tinyalsa {
namespace {

constexpr int64_t kNsPerSecond = 1000000000;
// Least lateness tolerated before a paced time line restarts.
constexpr int64_t kMinSlackNs = 200000000;

int64_t NowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * kNsPerSecond + now.tv_nsec;
}

timespec ToTimespec(int64_t ns) {
    timespec ts{};
    ts.tv_sec = static_cast<time_t>(ns / kNsPerSecond);
    ts.tv_nsec = static_cast<long>(ns % kNsPerSecond);
    return ts;
}

void SleepUntil(int64_t deadlineNs) {
    timespec deadline = ToTimespec(deadlineNs);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}

}  // namespace

PaceClock::PaceClock(unsigned int rate, unsigned int bufferFrames) : m_rate(rate != 0 ? rate : 1) {
    int64_t bufferNs = FramesToNs(bufferFrames);
    m_slackNs = bufferNs > kMinSlackNs ? bufferNs : kMinSlackNs;
}

int64_t PaceClock::FramesToNs(uint64_t frames) const {
    // Split to keep the product in range for any realistic stream length.
    return static_cast<int64_t>(frames / m_rate) * kNsPerSecond +
           static_cast<int64_t>(frames % m_rate) * kNsPerSecond / m_rate;
}

void PaceClock::Restart() {
    m_running = false;
}

void PaceClock::Advance(vcard_clock mode, unsigned int frames) {
    int64_t now = NowNs();
    if (!m_running) {
        m_running = true;
        m_originNs = now;
        m_frames = 0;
    }
    m_frames += frames;
    int64_t end = m_originNs + FramesToNs(m_frames);
    switch (mode) {
        case VCARD_CLOCK_REALTIME:
            if (now - end > m_slackNs) {
                m_originNs = now - FramesToNs(m_frames);  // fell behind: continue from now
                end = now;
            }
            SleepUntil(end);
            m_stamp = ToTimespec(end);
            break;
        case VCARD_CLOCK_FRAMES:
            m_stamp = ToTimespec(end);
            break;
        case VCARD_CLOCK_FREE:
        default:
            m_stamp = ToTimespec(NowNs());
            break;
    }
}

}  // namespace tinyalsa
