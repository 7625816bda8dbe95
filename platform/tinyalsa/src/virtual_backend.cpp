// The backend of virtual cards: tinyalsa calls on a card the registry knows.
#include <cerrno>
#include <memory>
#include <string>

#include "pcm_ops.h"
#include "vcard_registry.h"
#include "virtual_stream.h"

namespace tinyalsa {
namespace {

vcard_direction DirectionOf(unsigned int flags) {
    return (flags & PCM_IN) != 0 ? VCARD_CAPTURE : VCARD_PLAYBACK;
}

VirtualStream* StreamOf(pcm* handle) {
    return static_cast<VirtualStream*>(handle->impl);
}

bool VirtualParamsGet(unsigned int card, unsigned int device, unsigned int flags, ParamRanges* ranges) {
    std::shared_ptr<VirtualPcm> pcm = VcardRegistry::Instance().Find(card, device, DirectionOf(flags));
    return pcm != nullptr && pcm->Params(ranges);
}

int VirtualOpen(pcm* handle) {
    vcard_direction direction = DirectionOf(handle->flags);
    std::string name = PcmName(handle->card, handle->device, direction);
    std::shared_ptr<VirtualPcm> pcm = VcardRegistry::Instance().Find(handle->card, handle->device, direction);
    if (pcm == nullptr) {
        return SetPcmError(handle, 0, "%s: no such virtual PCM", name.c_str());
    }
    PcmSettings settings;
    std::string error;
    if (!pcm->Claim(handle->flags, handle->config, &settings, &error)) {
        return SetPcmError(handle, 0, "%s", error.c_str());
    }
    auto stream = std::make_unique<VirtualStream>(pcm, handle->config);
    if (!stream->Start(settings, &error)) {
        stream.reset();
        pcm->FinishOpen(false);
        return SetPcmError(handle, 0, "%s: %s", name.c_str(), error.c_str());
    }
    pcm->FinishOpen(true);
    handle->impl = stream.release();
    return 0;
}

void VirtualClose(pcm* handle) {
    VirtualStream* stream = StreamOf(handle);
    std::shared_ptr<VirtualPcm> pcm = stream->Pcm();
    bool abandoned = stream->Abandoned();
    delete stream;  // files are complete before the close is counted
    handle->impl = nullptr;
    if (!abandoned) {
        pcm->Release();
    }
}

int VirtualPrepare(pcm* handle) {
    switch (StreamOf(handle)->Prepare()) {
        case VCARD_PREPARE_OK:
            return 0;
        case VCARD_PREPARE_UNREADY:
            handle->ready.store(0);
            return SetPcmError(handle, EIO, "cannot prepare channel");
        case VCARD_PREPARE_FAIL:
        default:
            return SetPcmError(handle, EIO, "cannot prepare channel");
    }
}

int VirtualReadi(pcm* handle, void* data, unsigned int frames) {
    int result = StreamOf(handle)->Read(static_cast<uint8_t*>(data), frames);
    return result < 0 ? SetPcmError(handle, -result, "cannot read stream data") : result;
}

int VirtualWritei(pcm* handle, const void* data, unsigned int frames) {
    int result = StreamOf(handle)->Write(static_cast<const uint8_t*>(data), frames);
    return result < 0 ? SetPcmError(handle, -result, "cannot write stream data") : result;
}

int VirtualGetHtimestamp(pcm* handle, unsigned int* avail, timespec* stamp) {
    return StreamOf(handle)->Timestamp(avail, stamp);
}

const PcmOps kVirtualOps = {
    "virtual",      VirtualParamsGet, VirtualOpen,   VirtualClose,
    VirtualPrepare, VirtualReadi,     VirtualWritei, VirtualGetHtimestamp,
};

}  // namespace

const PcmOps& VirtualBackend() {
    return kVirtualOps;
}

}  // namespace tinyalsa
