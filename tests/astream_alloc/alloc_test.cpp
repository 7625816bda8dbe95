// The data path allocates nothing: every allocation of the process is counted while a
// running stream moves frame periods from a file AI through channel and dump nodes.
// Allocating is allowed up to the return of AUDIO_ASTREAM_Start, not after.
//
// The counter sits at the bottom: malloc and its relatives. Sanitizer builds own malloc,
// so there the sanitizer's allocation hook counts (from the first period on, see below);
// plain builds interpose malloc itself and count from the return of Start.
// operator new is replaced too, so C++ allocations are counted whatever the library's
// operator new calls.
#include <sys/stat.h>
#include <time.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "audio_ai.h"
#include "audio_astream.h"
#include "test_support.h"

// The replaced operator new and delete below pair malloc with free, which GCC cannot see
// once it inlines them into standard containers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {

std::atomic<bool> g_bArmed{false};
std::atomic<long> g_s64Count{0};
std::atomic<size_t> g_u32FirstSize{0};

void Note(size_t u32Size) {
    if (g_bArmed.load(std::memory_order_relaxed)) {
        if (g_s64Count.fetch_add(1, std::memory_order_relaxed) == 0) {
            g_u32FirstSize.store(u32Size, std::memory_order_relaxed);
        }
    }
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ALLOC_COUNT_BY_HOOK 1
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, size_t),
                                                         void (*free_hook)(const volatile void*));
namespace {
void MallocHook(const volatile void*, size_t u32Size) {
    Note(u32Size);
}
void FreeHook(const volatile void*) {}
const int g_s32Hooked = __sanitizer_install_malloc_and_free_hooks(MallocHook, FreeHook);
}  // namespace
#else
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);

void* malloc(size_t n) {
    Note(n);
    return __libc_malloc(n);
}
void* calloc(size_t n, size_t m) {
    Note(n * m);
    return __libc_calloc(n, m);
}
void* realloc(void* p, size_t n) {
    Note(n);
    return __libc_realloc(p, n);
}
void* memalign(size_t a, size_t n) {
    Note(n);
    return __libc_memalign(a, n);
}
void* aligned_alloc(size_t a, size_t n) {
    Note(n);
    return __libc_memalign(a, n);
}
int posix_memalign(void** pp, size_t a, size_t n) {
    Note(n);
    void* p = __libc_memalign(a, n);
    if (p == nullptr) {
        return ENOMEM;
    }
    *pp = p;
    return 0;
}
}
#endif

// C++ allocations, counted here and carried out by malloc (whose count in a sanitizer
// build adds one more: any count above zero fails the test the same).
void* operator new(size_t n) {
    Note(n);
    void* p = std::malloc(n ? n : 1);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](size_t n) {
    return operator new(n);
}
void* operator new(size_t n, const std::nothrow_t&) noexcept {
    Note(n);
    return std::malloc(n ? n : 1);
}
void* operator new[](size_t n, const std::nothrow_t&) noexcept {
    return operator new(n, std::nothrow);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
    std::free(p);
}

namespace {

constexpr int kChn = 4;
constexpr int kFrames = 64;
constexpr long kPeriodBytes = kChn * kFrames * 2;

long FileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

// Polls with nanosleep and stat only, so that waiting allocates nothing itself.
bool WaitForSize(const std::string& path, long bytes) {
    for (int i = 0; i < 30000; i++) {
        if (FileSize(path) >= bytes) {
            return true;
        }
        timespec ts = {0, 1000000};
        nanosleep(&ts, nullptr);
    }
    return false;
}

ASTREAM_NODE_ATTR_S Node(ASTREAM_NODE_TYPE_E type) {
    ASTREAM_NODE_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = type;
    return a;
}

// No log capture here: its sink stores lines in strings. Log lines go to standard error.
class AllocTest : public ::testing::Test {
  protected:
    void TearDown() override {
        g_bArmed.store(false);
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_AI_Close(0);
        AUDIO_AI_SetEnable(0, ZN_FALSE);
        AUDIO_AI_Destroy(0);
    }

    // Runs a stream of `workers` until its dump holds `periods` periods, counting every
    // allocation from the return of Start on.
    long CountWhileRunning(int workers, long periods) {
        const std::string in = root.Dir() + "/in.pcm";
        const std::string dump = root.Dir() + "/d.pcm";
        audiomw_test::WriteFileBytes(in, audiomw_test::MakePattern(kChn, 100 * kFrames));
        AI_ATTR_S ai;
        std::memset(&ai, 0, sizeof(ai));
        ai.eType = AI_DEV_TYPE_FILE;
        std::strncpy(ai.acFilePath, in.c_str(), sizeof(ai.acFilePath) - 1);
        ai.eSampleRate = AI_SAMPLE_RATE_16000;
        ai.s32Channel = kChn;
        ai.s32FrameLen = kFrames;
        EXPECT_EQ(0, AUDIO_AI_Create(0, &ai));

        ASTREAM_ATTR_S attr;
        attr.s32AiId = 0;
        attr.s32WorkerNum = workers;
        ASTREAM_NODE_ATTR_S swap = Node(ASTREAM_NODE_TYPE_E_SWAP);
        for (int i = 0; i < kChn; i++) {
            swap.unAttr.stSwap.as32Map[i] = kChn - 1 - i;
        }
        ASTREAM_NODE_ATTR_S split = Node(ASTREAM_NODE_TYPE_E_SPLIT);
        split.unAttr.stSplit = {0, 2, 2};
        ASTREAM_NODE_ATTR_S mixin = Node(ASTREAM_NODE_TYPE_E_MIXIN);
        mixin.unAttr.stMixin = {0, 1, 2};
        ASTREAM_NODE_ATTR_S merge = Node(ASTREAM_NODE_TYPE_E_MERGE);
        merge.unAttr.stMerge = {0, 2, 2};
        ASTREAM_NODE_ATTR_S dumpNode = Node(ASTREAM_NODE_TYPE_E_DEBUG_DUMP);
        std::strncpy(dumpNode.unAttr.stDump.acPath, dump.c_str(), sizeof(dumpNode.unAttr.stDump.acPath) - 1);
        dumpNode.unAttr.stDump.s32ChnCnt = kChn;
        attr.lstNodeAttr = {swap, split, mixin, merge, dumpNode};
        EXPECT_EQ(0, AUDIO_ASTREAM_Create(0, &attr));
        EXPECT_EQ(0, AUDIO_ASTREAM_enableDumpNode(0, ZN_TRUE));
        root.SetMarker("/var/debugnodeprocess");  // the per-node marker test runs too

        g_s64Count.store(0);
        EXPECT_EQ(0, AUDIO_ASTREAM_Start(0));
#ifdef ALLOC_COUNT_BY_HOOK
        // A sanitizer runtime allocates its own records as the reader thread starts, which
        // may run after Start has returned: count from the first delivered period on.
        EXPECT_TRUE(WaitForSize(dump, kPeriodBytes));
#endif
        g_bArmed.store(true);
        bool bReached = WaitForSize(dump, periods * kPeriodBytes);
        g_bArmed.store(false);
        EXPECT_TRUE(bReached);
        EXPECT_EQ(0, AUDIO_ASTREAM_Stop(0));
        return g_s64Count.load();
    }

    audiomw_test::ScratchRoot root;
};

// The counter itself: allocations on another thread while armed are seen.
TEST_F(AllocTest, CounterSeesAllocationsOnOtherThreads) {
    g_s64Count.store(0);
    g_bArmed.store(true);
    std::thread t([] {
        void* volatile p = std::malloc(48);
        std::free(p);
        delete new std::vector<int>(3);
    });
    t.join();
    g_bArmed.store(false);
    EXPECT_GE(g_s64Count.load(), 2);
}

// 48 filler periods, the 100 file periods and filler after them, with one worker.
TEST_F(AllocTest, OneWorkerAllocatesNothingAfterStart) {
    EXPECT_EQ(0, CountWhileRunning(1, 200)) << "first allocation of " << g_u32FirstSize.load() << " bytes";
}

// Four workers, with ring entries met while still in a worker's hands.
TEST_F(AllocTest, FourWorkersAllocateNothingAfterStart) {
    EXPECT_EQ(0, CountWhileRunning(4, 200)) << "first allocation of " << g_u32FirstSize.load() << " bytes";
}

}  // namespace
