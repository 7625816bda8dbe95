// An application built against an installed audiomw: it plays a raw file through a
// file input and checks the bytes of the first block after the lead-in. It also uses
// the installed tinyalsa headers, as an application driving a card would.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include <tinyalsa/pcm.h>

#include "audio_ai.h"
#include "audio_ext.h"

namespace {

const int kAi = 2;
const int kChannels = 4;
const int kFrames = 160;
const int kLeadBlocks = 48;

int Fail(const char* what) {
    std::fprintf(stderr, "consumer: %s\n", what);
    return 1;
}

// Reads `count` whole blocks into buf.
bool ReadBlocks(std::vector<unsigned char>& buf, int count) {
    unsigned long long ts = 0;
    unsigned int got = 0;
    for (int i = 0; i < count; i++) {
        if (AUDIO_AI_Read(kAi, buf.data(), buf.size(), got, ts, -1) != 0 || got != buf.size()) {
            return false;
        }
    }
    return true;
}

int Run() {
    if (pcm_format_to_bits(PCM_FORMAT_S16_LE) != 16) {
        return Fail("tinyalsa: S16_LE is not 16 bits");
    }
    const size_t block = kChannels * kFrames * 2;
    std::vector<unsigned char> file(3 * block);
    for (size_t i = 0; i < file.size(); i++) {
        file[i] = static_cast<unsigned char>(i * 13 + 5);
    }
    FILE* f = std::fopen("input.pcm", "wb");
    if (f == nullptr || std::fwrite(file.data(), 1, file.size(), f) != file.size() || std::fclose(f) != 0) {
        return Fail("cannot write input.pcm");
    }
    AI_ATTR_S attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.eType = AI_DEV_TYPE_FILE;
    std::strcpy(attr.acFilePath, "input.pcm");
    attr.bEnable = ZN_TRUE;
    attr.eSampleRate = AI_SAMPLE_RATE_16000;
    attr.s32Channel = kChannels;
    attr.s32FrameLen = kFrames;
    if (AUDIO_AI_Create(kAi, &attr) != 0 || AUDIO_AI_SetAttr(kAi, &attr) != 0 || AUDIO_AI_Open(kAi) != 0) {
        return Fail("file AI: create, set or open failed");
    }
    std::vector<unsigned char> buf(block);
    if (!ReadBlocks(buf, kLeadBlocks) || buf != std::vector<unsigned char>(block, 0xA5)) {
        return Fail("file AI: lead-in is not filler");
    }
    if (!ReadBlocks(buf, 1) || !std::equal(buf.begin(), buf.end(), file.begin())) {
        return Fail("file AI: first block differs from the file");
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || chdir(argv[1]) != 0) {
        return Fail("usage: consumer WORKDIR");
    }
    AUDIO_EXT_SetRootDir(argv[1]);
    int rc = Run();
    AUDIO_AI_Close(kAi);
    AUDIO_AI_SetEnable(kAi, ZN_FALSE);
    AUDIO_AI_Destroy(kAi);
    if (rc == 0) {
        std::printf("consumer: first block after %d filler blocks matches the file\n", kLeadBlocks);
    }
    return rc;
}
