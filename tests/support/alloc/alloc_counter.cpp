// The counter sits at the bottom: malloc and its relatives. Sanitizer builds own malloc,
// so there the sanitizer's allocation hook counts; plain builds interpose malloc itself
// and forward to glibc. operator new is replaced too, so C++ allocations are counted
// whatever the standard library's operator new calls.
#include "alloc_counter.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include <atomic>

// The replaced operator new and delete pair malloc with free, which GCC cannot see once
// it inlines them into standard containers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {

std::atomic<bool> g_bArmed{false};
std::atomic<long> g_s64Count{0};
std::atomic<size_t> g_u32FirstSize{0};
std::atomic<size_t> g_u32FailSize{0};

// True once for the armed size: that call fails.
[[maybe_unused]] bool TakeFailure(size_t u32Size) {
    size_t u32Armed = u32Size;
    return u32Size != 0 && g_u32FailSize.load(std::memory_order_relaxed) == u32Size &&
           g_u32FailSize.compare_exchange_strong(u32Armed, 0, std::memory_order_relaxed);
}

void Note(size_t u32Size) {
    if (g_bArmed.load(std::memory_order_relaxed) && g_s64Count.fetch_add(1, std::memory_order_relaxed) == 0) {
        g_u32FirstSize.store(u32Size, std::memory_order_relaxed);
    }
}

}  // namespace

namespace audiomw_test {

void AllocCounterArm() {
    g_s64Count.store(0);
    g_u32FirstSize.store(0);
    g_bArmed.store(true);
}

void AllocCounterDisarm() {
    g_bArmed.store(false);
}

long AllocCount() {
    return g_s64Count.load();
}

size_t AllocFirstSize() {
    return g_u32FirstSize.load();
}

}  // namespace audiomw_test

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, size_t),
                                                         void (*free_hook)(const volatile void*));
namespace {
void MallocHook(const volatile void*, size_t u32Size) {
    Note(u32Size);
}
void FreeHook(const volatile void*) {}
const int g_s32Hooked = __sanitizer_install_malloc_and_free_hooks(MallocHook, FreeHook);
}  // namespace

bool audiomw_test::AllocFailNext(size_t) {
    return false;
}
#else
bool audiomw_test::AllocFailNext(size_t u32Size) {
    g_u32FailSize.store(u32Size);
    return true;
}

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);

void* malloc(size_t n) {
    Note(n);
    if (TakeFailure(n)) {
        errno = ENOMEM;
        return nullptr;
    }
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
// build adds one more: any count above zero fails a test the same).
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
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
