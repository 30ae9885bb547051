#pragma once

class DeviceNode;

/// Bit rates of serial devices, apart from the rest since Linux's own structure for them and the C library's
/// cannot be had in one file.
namespace SerialBitRate
{

/// Sets any bit rate in both directions. False and errno when the device takes none this way.
bool set(const DeviceNode& device, int bitsPerSecond);

/// The rate that the device really has, in bit/s; 0 when it does not tell.
int get(const DeviceNode& device);

} // namespace SerialBitRate
