// The threads of a stream: the reader routine that fills ring entries from the AI and
// feeds them to the worker pool, the worker job that runs the pipeline over one entry
// (threadAudioProcessReader / threadAudioProcessWorker, declared in audio_astream.h),
// and the bookkeeping of which ring entries are in a worker's hands.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_THREADS_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_THREADS_H

#include "audio_astream.h"

namespace audiomw {
namespace astream {

// How long the reader waits for an idle worker, and at most for a worker to hand back
// the ring entry it is about to refill, in milliseconds.
constexpr int kReaderWaitMs = 100;

// Marks every ring entry of stream slot s32StreamId free; called when a stream is
// created in the slot.
void ResetJobTrack(int s32StreamId);

// The id of the stream whose job the calling thread runs (a pool worker inside
// threadAudioProcessWorker, the frame callbacks included), -1 on any other thread.
int WorkerStreamId();

}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_THREADS_H
