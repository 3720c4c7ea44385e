/* SPDX-License-Identifier: MIT */
#ifndef MONITOR_AUDIO_BUFFER_LIST_H
#define MONITOR_AUDIO_BUFFER_LIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One run of samples: 32-bit floats, `mNumberChannels` of them interleaved to a frame.
 *
 *   byte 0            4               8                16
 *        | channels   | size in bytes | data pointer   |      (64-bit layout)
 */
typedef struct MonitorAudioBuffer {
  uint32_t mNumberChannels;
  uint32_t mDataByteSize;
  void* mData; /* may be null */
} MonitorAudioBuffer;

/* A 32-bit count followed by that many buffers; the layout of the Mac's AudioBufferList.
 *
 *   byte 0            4           8          24
 *        | count      | padding   | buffer 0 | buffer 1 …
 */
typedef struct MonitorAudioBufferList {
  uint32_t mNumberBuffers;
  MonitorAudioBuffer mBuffers[1]; /* really mNumberBuffers of them */
} MonitorAudioBufferList;

#ifdef __cplusplus
}
#endif

#endif
