// The per-frame pass of the line-in capture check of the line-in card's blocks: counts
// frames whose channel 2 sits high and reports a stuck capture, and silences channels 2
// and 3 while the line-in source is disconnected. A pass of its own so that its cost can
// be measured apart from the read around it.
#ifndef AUDIOMW_SRC_AI_LINE_IN_CHECK_H
#define AUDIOMW_SRC_AI_LINE_IN_CHECK_H

namespace audiomw {

// Blocks the check stays idle after a destroy, and the reports it makes before it goes
// idle until the next destroy.
constexpr unsigned int kLineInIdleBlocks = 100;
constexpr unsigned int kLineInReports = 4;

// One pass over the s32Frames frames of s32Chn interleaved 16-bit channels in pBuf.
// While u32CheckCnt lies in [kLineInIdleBlocks, kLineInIdleBlocks + kLineInReports),
// every time 60% of the block's frames (counted since the last report) carry a channel-2
// sample above 25000, reports on standard output and in the log (as _readFrame) and
// advances u32CheckCnt. Fewer than four channels: nothing is done.
void LineInCheckPass(unsigned char* pBuf, int s32Chn, int s32Frames, bool bConnected,
                     unsigned int& u32CheckCnt);

}  // namespace audiomw

#endif  // AUDIOMW_SRC_AI_LINE_IN_CHECK_H
