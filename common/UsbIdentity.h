#pragma once

/// USB identity of a PELLIX, as udev and sysfs show it; the ids are lower-case hexadecimal.
inline constexpr const char* kUsbVendorId = "0483";
inline constexpr const char* kUsbProductId = "5740";
inline constexpr const char* kUsbManufacturer = "Zentrova";
