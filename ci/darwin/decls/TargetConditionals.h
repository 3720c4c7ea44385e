#pragma once
// Which of the Apple systems this is, for GoogleTest.
#define TARGET_OS_MAC 1
#define TARGET_OS_OSX 1
#define TARGET_OS_IPHONE 0
