#pragma once
#define kIOHIDDeviceKey "IOHIDDevice"
#define kIOHIDProductKey "Product"
