// Counts the PCM handles that pcm_open handed out and pcm_close has not yet released,
// by standing in front of tinyalsa's two functions in this test program. The virtual
// cards keep every handle reachable, so a handle the library drops would not show as a
// leak; this count shows it.
#ifndef AUDIOMW_TESTS_AI_ALSA_PCM_HANDLE_COUNT_H
#define AUDIOMW_TESTS_AI_ALSA_PCM_HANDLE_COUNT_H

namespace audiomw_test {

int LivePcmHandles();

}  // namespace audiomw_test

#endif  // AUDIOMW_TESTS_AI_ALSA_PCM_HANDLE_COUNT_H
