#pragma once
#define kIOPSTypeKey "Type"
#define kIOPSInternalBatteryType "InternalBattery"
#define kIOPSCurrentCapacityKey "Current Capacity"
#define kIOPSMaxCapacityKey "Max Capacity"
#define kIOPSTimeToEmptyKey "Time to Empty"
#define kIOPSPowerSourceStateKey "Power Source State"
