#include "ai_file_device.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "audio_log.h"
#include "relaxed_atomic.h"

namespace {

// Copies a record's path into a terminated buffer of the device's path size: a path of
// up to 39 characters is kept whole; one that fills all 40 bytes is cut to 39.
void CopyPath(char (&acDst)[AUDIO_AI_FILE_PATH_LEN], const char* pcSrc) {
    size_t u32Len = strnlen(pcSrc, AUDIO_AI_FILE_PATH_LEN - 1);
    std::memcpy(acDst, pcSrc, u32Len);
    acDst[u32Len] = '\0';
}

void CloseFd(AI_FILE_DEVICE_S* pDev) {
    if (pDev->_ms32Fd > 0) {
        ::close(pDev->_ms32Fd);
        pDev->_ms32Fd = -1;
    }
}

int ReadFileChunk(AI_FILE_DEVICE_S* pDev, unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen);

}  // namespace

AI_FILE_DEVICE_S::AI_FILE_DEVICE_S()
    : _ms32Fd(-1), _ms64FileSize(0), _ms64Offset(0), _ms32LeadBlocks(AI_FILE_LEAD_BLOCKS), _mbFileReady(0) {
    std::memset(_mFilePath, 0, sizeof(_mFilePath));
}

AI_FILE_DEVICE_S::~AI_FILE_DEVICE_S() {}

int AI_FILE_DEVICE_S::init() {
    audiomw::StoreRelaxed(bHasInit, 1u);
    return 0;
}

int AI_FILE_DEVICE_S::destroy() {
    audiomw::StoreRelaxed(bHasInit, 0u);
    _ms64FileSize = 0;
    _ms64Offset = 0;
    _ms32LeadBlocks = AI_FILE_LEAD_BLOCKS;
    _mbFileReady = 0;
    CloseFd(this);
    return 0;
}

int AI_FILE_DEVICE_S::open() {
    audiomw::StoreRelaxed(bHasOpen, 1u);
    if (_mFilePath[0] == '\0') {
        return 0;
    }
    // Read-write on purpose: a file the process may not write is refused.
    _ms32Fd = ::open(_mFilePath, O_RDWR);
    if (_ms32Fd < 0) {
        AUDIO_LOGW("open failed, file:%s\n", _mFilePath);
        return -1;
    }
    struct stat stInfo;
    if (stat(_mFilePath, &stInfo) != 0) {
        AUDIO_LOGW("stat failed, file:%s\n", _mFilePath);
        ::close(_ms32Fd);
        _ms32Fd = -1;
        return -1;
    }
    _ms64FileSize = stInfo.st_size;
    _ms64Offset = 0;
    AUDIO_LOGI("file:%s get stat size:%lld\n", _mFilePath, static_cast<long long>(_ms64FileSize));
    _mbFileReady = 1;
    return 0;
}

int AI_FILE_DEVICE_S::close() {
    _mbFileReady = 0;
    CloseFd(this);
    audiomw::StoreRelaxed(bHasOpen, 0u);
    return 0;
}

int AI_FILE_DEVICE_S::hotApply() {
    return 0;
}

AUDIO_SET_ACTION_E AI_FILE_DEVICE_S::calActionOnSetCfg(AI_ATTR_S* attr) {
    char acPath[AUDIO_AI_FILE_PATH_LEN];
    CopyPath(acPath, attr->acFilePath);
    int s32Access = access(acPath, F_OK);
    AUDIO_LOGI("acFilePath:%s, len:%d, access:%d\n", acPath, static_cast<int>(std::strlen(acPath)),
               s32Access);
    if (acPath[0] == '\0' || s32Access != 0) {
        return AUDIO_SET_ACTION_E_HOT_UPDATE;
    }
    std::memcpy(_mFilePath, acPath, sizeof(_mFilePath));
    AUDIO_LOGI("_mFilePath:%s, need Destroy..\n", _mFilePath);
    return AUDIO_SET_ACTION_E_NEED_DESTROY;
}

int AI_FILE_DEVICE_S::_readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                                 unsigned long long&, int) {
    bool bFiller = !_mbFileReady || _ms64Offset >= _ms64FileSize;
    if (!bFiller && _ms32LeadBlocks > 0) {
        _ms32LeadBlocks--;
        bFiller = true;
    }
    if (bFiller) {
        std::memset(pBuf, AI_FILE_FILLER_BYTE, u32Len);
        u32ReadLen = u32Len;
        return 0;
    }
    if (_ms64Offset == 0) {
        AUDIO_LOGI("file send start. size:%lld-%lld\n", static_cast<long long>(_ms64Offset),
                   static_cast<long long>(_ms64FileSize));
    }
    return ReadFileChunk(this, pBuf, u32Len, u32ReadLen);
}

// Reads the next chunk at the device's own offset. A failed read delivers nothing and
// keeps the offset, so the caller drops the block and the next call retries; a file
// that shrank under the device ends early and filler follows.
namespace {

int ReadFileChunk(AI_FILE_DEVICE_S* pDev, unsigned char* pBuf, unsigned int u32Len,
                  unsigned int& u32ReadLen) {
    int64_t s64Left = pDev->_ms64FileSize - pDev->_ms64Offset;
    size_t u32Want = (static_cast<int64_t>(u32Len) < s64Left) ? u32Len : static_cast<size_t>(s64Left);
    u32ReadLen = static_cast<unsigned int>(u32Want);
    ssize_t s64Got = -1;
    if (lseek(pDev->_ms32Fd, static_cast<off_t>(pDev->_ms64Offset), SEEK_SET) >= 0) {
        s64Got = ::read(pDev->_ms32Fd, pBuf, u32Want);
    }
    if (s64Got < 0) {
        AUDIO_LOGE_OP("_readFrame", "read failed, file:%s, %s\n", pDev->_mFilePath, std::strerror(errno));
        u32ReadLen = 0;
        return -1;
    }
    if (s64Got == 0 && u32Want > 0) {
        AUDIO_LOGW_OP("_readFrame", "file:%s ended early at %lld of %lld\n", pDev->_mFilePath,
                      static_cast<long long>(pDev->_ms64Offset), static_cast<long long>(pDev->_ms64FileSize));
        pDev->_ms64FileSize = pDev->_ms64Offset;
    }
    u32ReadLen = static_cast<unsigned int>(s64Got);
    pDev->_ms64Offset += s64Got;
    if (pDev->_ms64Offset >= pDev->_ms64FileSize) {
        AUDIO_LOGI_OP("_readFrame", "file send over. size:%lld-%lld\n",
                      static_cast<long long>(pDev->_ms64Offset), static_cast<long long>(pDev->_ms64FileSize));
    }
    return 0;
}

}  // namespace
