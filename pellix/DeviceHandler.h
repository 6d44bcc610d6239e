#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Device.h"

namespace pellix {

/// Applies the master's data lines to the device model.
class DeviceHandler {
public:
    DeviceHandler();
    DeviceHandler(const DeviceHandler&) = delete;
    DeviceHandler& operator=(const DeviceHandler&) = delete;
    virtual ~DeviceHandler() = default;

    /// The value of the last "ID" line without its quotes; empty until one came. Any thread.
    std::string GetID() const;

    /// Applies one data line, `key`=`value`. Parser thread only. Malformed lines change nothing
    /// and are not reported; nothing is thrown for them.
    void HandleResponse(const std::string& key, const std::string& value);

    /// The device model, which lives as long as the handler. Any thread.
    Device& GetDevice() const { return *device; }

private:
    void StoreID(const std::string& value);
    void StoreProcessInput(const std::string& value);
    void StoreMode(const std::string& value);
    void StoreParameter(const std::string& key, const std::string& value);

    const std::unique_ptr<Device> device;
    std::vector<std::uint8_t> processInput;  // memory for the next line's bytes
    std::string id;
    mutable std::mutex idMutex;  // guards id; no other lock is taken under it
};

}  // namespace pellix
