// Single-word flags and fields that one thread writes while another reads them without
// the writer's lock (enable and mute flags, the line-in state, attribute words): relaxed
// atomic access keeps each word whole and the readers race-free without a lock on the
// data path.
#ifndef AUDIOMW_SRC_COMMON_RELAXED_ATOMIC_H
#define AUDIOMW_SRC_COMMON_RELAXED_ATOMIC_H

namespace audiomw {

template <typename T>
inline T LoadRelaxed(const T& value) {
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

template <typename T>
inline void StoreRelaxed(T& dst, T value) {
    __atomic_store_n(&dst, value, __ATOMIC_RELAXED);
}

}  // namespace audiomw

#endif  // AUDIOMW_SRC_COMMON_RELAXED_ATOMIC_H
