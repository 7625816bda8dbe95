// Stream lifecycle (AUDIO_ASTREAM_Create, Destroy, Start, Stop, isReady, isRunning,
// declared in audio_astream.h) and the lock that guards the stream slot table against
// walkers on other threads.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_LIFECYCLE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_LIFECYCLE_H

#include "audio_astream.h"

namespace audiomw {
namespace astream {

// Held while a stream is put into or taken out of its slot, and by functions that walk
// a stream's nodes from a thread other than the control thread (enabling dump nodes),
// so that such a walk never meets a stream being torn down.
void LockSlots();
void UnlockSlots();

// True when stream slot s32StreamId holds a stream, created or only put there.
bool SlotHeld(int s32StreamId);

}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_LIFECYCLE_H
