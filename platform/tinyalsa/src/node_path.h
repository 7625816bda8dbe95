// The device node of a kernel PCM: "/dev/snd/pcmC<card>D<device>{c,p}".
#ifndef TINYALSA_SRC_NODE_PATH_H
#define TINYALSA_SRC_NODE_PATH_H

#include <cstdio>

#include "pcm_handle.h"

namespace tinyalsa {

class NodePath {
  public:
    NodePath(unsigned int card, unsigned int device, unsigned int flags) {
        std::snprintf(m_path, sizeof(m_path), "/dev/snd/pcmC%uD%u%c", card, device, DirectionLetter(flags));
    }
    const char* c_str() const { return m_path; }

  private:
    char m_path[48];
};

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_NODE_PATH_H
