/* SPDX-License-Identifier: MIT */
#ifndef MONITOR_GAIN_H
#define MONITOR_GAIN_H

/* Applies one application's gain to its captured audio inside the realtime callback. A flat C interface, also
 * built as libMonitorGain.so, so that any language can drive it.
 *
 * Threads: MonitorGainRender runs on the device's realtime thread, everything else on one control thread at a
 * time. The state is shared through lock-free atomics only. Nothing here locks, logs or, outside create and
 * destroy, allocates; the only library call of a render is the zeroing of the output buffers. */

#include <stdbool.h>
#include <stdint.h>

#include "MonitorCore/Ports/AudioBufferList.h"

#if defined(__GNUC__)
#define MONITOR_GAIN_EXPORT __attribute__((visibility("default")))
#else
#define MONITOR_GAIN_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct MonitorGainState MonitorGainState;

/* A state whose target and current gain are 1.0; null when memory is short. */
MONITOR_GAIN_EXPORT MonitorGainState* MonitorGainCreate(void);

/* Frees the state; null is allowed. No render may be under way. */
MONITOR_GAIN_EXPORT void MonitorGainDestroy(MonitorGainState* state);

/* The gain that the next render ramps to, clamped to 0.0…1.0; a non-finite gain becomes 1.0. */
MONITOR_GAIN_EXPORT void MonitorGainSet(MonitorGainState* state, float gain);

/* Whether a render was ever given buffers that do not fit; never cleared. */
MONITOR_GAIN_EXPORT bool MonitorGainFailed(const MonitorGainState* state);

/* Successful renders so far (one per I/O cycle, not a count of samples). */
MONITOR_GAIN_EXPORT uint64_t MonitorGainFrames(const MonitorGainState* state);

/* Silences the output, then renders the input into it, ramping linearly from the gain reached by the previous
 * render to the target over exactly one buffer. Lists of 32-bit float samples whose shapes must match buffer
 * by buffer; where they do not, the output stays silent and the state is marked failed. */
MONITOR_GAIN_EXPORT void MonitorGainRender(MonitorGainState* state, const MonitorAudioBufferList* input,
                                           MonitorAudioBufferList* output);

#ifdef __cplusplus
}
#endif

#endif
