// SPDX-License-Identifier: MIT
// Starts a private stack, tells its directory, and waits to be killed.
#include <unistd.h>

#include <iostream>

#include "Tools/AudioLab/PrivateStack.h"

int main() {
  const monitor::lab::PrivateStack stack({.bus = true});
  std::cout << stack.directory().string() << std::endl;
  for (;;) ::pause();
}
