// A program written as a board application is: it declares the input interface itself,
// with the documented type names and signatures, and links against libaudiomw.so. It
// plays a raw PCM file through a file input and checks the lead-in and the first block.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

enum tagZN_BOOL : int { ZN_FALSE = 0, ZN_TRUE = 1 };
enum tagAI_DEV_TYPE_E : unsigned int { AI_DEV_TYPE_FILE = 11 };
enum tagAI_SAMPLE_RATE_E : int { AI_SAMPLE_RATE_16000 = 16000 };
struct AI_ATTR_S {
    tagAI_DEV_TYPE_E eType;
    char acFilePath[40];
    tagZN_BOOL bEnable;
    tagAI_SAMPLE_RATE_E eSampleRate;
    int s32Channel;
    int s32FrameLen;
    int s32Volume;
    tagZN_BOOL bLineInConnect;
};

int AUDIO_AI_Create(int id, AI_ATTR_S* attr);
int AUDIO_AI_Destroy(int id);
int AUDIO_AI_Open(int id);
int AUDIO_AI_Close(int id);
int AUDIO_AI_Read(int id, unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                  unsigned long long& u64TimeStamp, int s32Timeout);
int AUDIO_AI_SetAttr(int id, AI_ATTR_S* attr);
int AUDIO_AI_SetEnable(int id, tagZN_BOOL enable);
int AUDIO_AI_GetRecommendReadBufferSize(int id);
extern "C" int AUDIO_EXT_SetRootDir(const char* dir);

namespace {

int Fail(const char* what) {
    std::fprintf(stderr, "consumer: %s\n", what);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || chdir(argv[1]) != 0) {
        return Fail("usage: abi_consumer WORKDIR");
    }
    AUDIO_EXT_SetRootDir(argv[1]);
    const unsigned int fileBytes = 4000;  // 2 channels x 1000 frames
    std::vector<unsigned char> file(fileBytes);
    for (unsigned int i = 0; i < fileBytes; i++) {
        file[i] = static_cast<unsigned char>(i * 7 + 3);
    }
    FILE* f = std::fopen("consumer.pcm", "wb");
    if (f == nullptr || std::fwrite(file.data(), 1, file.size(), f) != file.size() || std::fclose(f) != 0) {
        return Fail("cannot write the input file");
    }
    AI_ATTR_S attr = {AI_DEV_TYPE_FILE, "consumer.pcm", ZN_TRUE, AI_SAMPLE_RATE_16000, 2, 160, 0, ZN_FALSE};
    if (AUDIO_AI_Create(3, &attr) != 0 || AUDIO_AI_SetAttr(3, &attr) != 0 || AUDIO_AI_Open(3) != 0) {
        return Fail("create/set/open failed");
    }
    const unsigned int block = static_cast<unsigned int>(AUDIO_AI_GetRecommendReadBufferSize(3));
    if (block != 640) {
        return Fail("unexpected block size");
    }
    std::vector<unsigned char> buf(block);
    std::vector<unsigned char> filler(block, 0xA5);
    unsigned long long ts = 0;
    for (int i = 0; i < 48; i++) {
        unsigned int got = 0;
        if (AUDIO_AI_Read(3, buf.data(), block, got, ts, -1) != 0 || got != block || buf != filler) {
            return Fail("lead-in block wrong");
        }
    }
    unsigned int got = 0;  // the file's first block, through the references of the read call
    if (AUDIO_AI_Read(3, buf.data(), block, got, ts, -1) != 0 || got != block ||
        std::memcmp(buf.data(), file.data(), block) != 0) {
        return Fail("first file block wrong");
    }
    AUDIO_AI_Close(3);
    AUDIO_AI_SetEnable(3, ZN_FALSE);
    AUDIO_AI_Destroy(3);
    std::remove("consumer.pcm");
    std::printf("consumer: 48 lead-in blocks, then the file's first %u bytes\n", block);
    return 0;
}
