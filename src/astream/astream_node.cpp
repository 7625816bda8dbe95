#include "astream_node.h"

ASTREAM_NODE_S::ASTREAM_NODE_S()
    : _meType(ASTREAM_NODE_TYPE_E_OUTPUT), _mbEnable(ZN_FALSE), _mpHandler(nullptr) {
    pthread_mutex_init(&_mMutex, nullptr);
}

ASTREAM_NODE_S::~ASTREAM_NODE_S() {
    pthread_mutex_destroy(&_mMutex);
}
