/* Umbrella header, as in tinyalsa: the PCM interface. */
#ifndef TINYALSA_ASOUNDLIB_H
#define TINYALSA_ASOUNDLIB_H

#include <tinyalsa/pcm.h>

#endif /* TINYALSA_ASOUNDLIB_H */
