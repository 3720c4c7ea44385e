/* SPDX-License-Identifier: MIT */
/* A program in plain C on the shared library: the header compiles, links and ramps. */
#include <stdio.h>

#include "MonitorAudioEngine/MonitorGain.h"

static int complain(const char* what) {
  fprintf(stderr, "gain from C: %s\n", what);
  return 1;
}

int main(void) {
  static const float expected[8] = {0.875F, 0.875F, 0.75F, 0.75F, 0.625F, 0.625F, 0.5F, 0.5F};
  float in[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  float out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  MonitorAudioBufferList input = {1, {{2, sizeof in, in}}};
  MonitorAudioBufferList output = {1, {{2, sizeof out, out}}};
  MonitorAudioBufferList empty = {0, {{0, 0, NULL}}};
  MonitorGainState* state = MonitorGainCreate();
  if (state == NULL) return complain("no state");
  MonitorGainSet(state, 0.5F);
  MonitorGainRender(state, &input, &output);
  for (int sample = 0; sample < 8; ++sample) {
    if (out[sample] != expected[sample]) return complain("a sample differs");
  }
  if (MonitorGainFrames(state) != 1) return complain("one render must count as one");
  if (MonitorGainFailed(state)) return complain("failed without a reason");
  MonitorGainRender(state, &input, &empty);
  if (!MonitorGainFailed(state)) return complain("an empty list must fail");
  MonitorGainDestroy(state);
  return 0;
}
