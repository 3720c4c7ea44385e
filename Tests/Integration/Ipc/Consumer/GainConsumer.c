/* SPDX-License-Identifier: MIT */
/* The gain core as a program in C meets it: one frame ramps to the gain, the next one has it. */
#include <stdio.h>

#include "MonitorAudioEngine/MonitorGain.h"

int main(void) {
  float in[2] = {1.0F, 1.0F};
  float out[2] = {0.0F, 0.0F};
  const MonitorAudioBufferList input = {1, {{2, sizeof(in), in}}};
  MonitorAudioBufferList output = {1, {{2, sizeof(out), out}}};
  MonitorGainState* state = MonitorGainCreate();
  if (state == NULL) return 1;
  MonitorGainSet(state, 0.4F);
  MonitorGainRender(state, &input, &output);
  MonitorGainRender(state, &input, &output);
  printf("%.2f\n", (double)out[1]);
  const int wrong = MonitorGainFailed(state) || MonitorGainFrames(state) != 2;
  MonitorGainDestroy(state);
  return wrong;
}
