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

    /// @return value of the last "ID" line, without its quotes; empty before the first. Any thread.
    std::string GetID() const;

    /// Applies the data line `key`=`value`. Malformed lines and unknown keys are ignored without a
    /// log line. Parser thread only.
    void HandleResponse(const std::string& key, const std::string& value);

    /// @return the device model, which lives as long as the handler. Any thread.
    Device& GetDevice() const { return *device; }

private:
    void StoreID(const std::string& value);
    void StoreProcessInput(const std::string& value);
    void StoreMode(const std::string& value);
    void StoreParameter(const std::string& key, const std::string& value);

    const std::unique_ptr<Device> device;
    std::vector<std::uint8_t> processInput;  // keeps its memory for the bytes of the next line
    std::string id;
    mutable std::mutex idMutex;  // guards id; no other lock is taken under it
};

}  // namespace pellix
