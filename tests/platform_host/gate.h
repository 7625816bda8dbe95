// A test-controlled barrier for jobs and routines: callers block in Pass() until the
// test opens the gate; the test can wait, with a deadline, until a number of callers
// have arrived.
#ifndef AUDIOMW_TESTS_PLATFORM_HOST_GATE_H
#define AUDIOMW_TESTS_PLATFORM_HOST_GATE_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace host_test {

class Gate {
  public:
    // Counts the arrival, then blocks until Open().
    void Pass() {
        std::unique_lock<std::mutex> lk(m_mtx);
        m_arrived++;
        m_cv.notify_all();
        m_cv.wait(lk, [&] { return m_open; });
    }
    // Counts the arrival without blocking.
    void Arrive() {
        std::lock_guard<std::mutex> lk(m_mtx);
        m_arrived++;
        m_cv.notify_all();
    }
    void Open() {
        std::lock_guard<std::mutex> lk(m_mtx);
        m_open = true;
        m_cv.notify_all();
    }
    // True once at least n callers have arrived; false after the deadline.
    bool WaitArrivals(int n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lk(m_mtx);
        return m_cv.wait_for(lk, timeout, [&] { return m_arrived >= n; });
    }
    int Arrived() {
        std::lock_guard<std::mutex> lk(m_mtx);
        return m_arrived;
    }

  private:
    std::mutex m_mtx;
    std::condition_variable m_cv;
    int m_arrived = 0;
    bool m_open = false;
};

}  // namespace host_test

#endif  // AUDIOMW_TESTS_PLATFORM_HOST_GATE_H
