#pragma once

/// What a PELLIX tells of itself over USB, as udev and sysfs show it (lowercase hexadecimal).
inline constexpr const char* kUsbVendorId = "0483";
inline constexpr const char* kUsbProductId = "5740";
inline constexpr const char* kUsbManufacturer = "Zentrova";
