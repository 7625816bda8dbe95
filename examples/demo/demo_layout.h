// What the demonstration builds, shared by the program and by its output check.
//
// Input: raw 16-bit PCM, 4 channels at 16000 Hz (in0..in3). The stream cuts it into four
// mono blocks, mixes in3 into in0, swaps the first two blocks and merges two stereo
// groups, so that:
//   AO 0 (card 1: 2 channels at 16000 Hz, taken as they are) plays (in1, (in0 + in3) / 2),
//   AO 1 (card 2: 1 channel at 48000 Hz only) is sent (in2, in3); its output keeps the
//        card's one channel, in2, and resamples it to 48000 Hz,
//   the dump file holds (in2, in3) as sent to AO 1, raw 2 channels at 16000 Hz.
#ifndef AUDIOMW_DEMO_DEMO_LAYOUT_H
#define AUDIOMW_DEMO_DEMO_LAYOUT_H

namespace demo {

constexpr int kRate = 16000;
constexpr int kInputChannels = 4;
constexpr int kPeriodFrames = 320;  // 20 ms
constexpr int kGroupChannels = 2;   // channels sent to each output
constexpr int kAo1CardRate = 48000;
constexpr int kAo1CardChannels = 1;

// Periods of silence appended to the input the stream reads. The stream reads a period
// or two ahead of what the cards have played when it is stopped; those periods come
// from this silence rather than from the filler a file input delivers after its end.
constexpr int kTailPeriods = 50;

// Files in the output directory (relative: the program works from that directory).
constexpr const char* kInputCopy = "input.pcm";
constexpr const char* kCardsFile = "vcards.txt";
constexpr const char* kAo0Wav = "ao0_card1.wav";
constexpr const char* kAo1Wav = "ao1_card2.wav";
constexpr const char* kDumpFile = "dump_ao1_group.pcm";
constexpr const char* kLibraryLog = "library.log";

}  // namespace demo

#endif  // AUDIOMW_DEMO_DEMO_LAYOUT_H
