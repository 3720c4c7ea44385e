// SPDX-License-Identifier: MIT
// Only here to carry the precompiled header of the tests.
