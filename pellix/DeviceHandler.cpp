#include "pellix/DeviceHandler.h"

#include <utility>

#include "common/LogLine.h"
#include "pellix/Protocol.h"

namespace pellix {

DeviceHandler::DeviceHandler() : device(std::make_unique<Device>()) {}

std::string DeviceHandler::GetID() const {
    const std::lock_guard<std::mutex> lock(idMutex);
    return id;
}

// Masters also send events ("EV") and "PDDIV", "CQ" and "DQ" reports. The daemon does not use them
// and ignores them like any unknown key.
void DeviceHandler::HandleResponse(const std::string& key, const std::string& value) {
    if (key == kKeyId) {
        StoreID(value);
    } else if (key == kKeyMode) {
        StoreMode(value);
    } else if (key.starts_with(kKeyParameter)) {
        StoreParameter(key, value);
    } else if (key == kKeyPdin) {
        StoreProcessInput(value);
    } else if (key == kKeyPdout) {
        if (const auto bytes = ReadByteList(value)) {
            device->SetPDOUT(*bytes);
        }
    } else if (key == kKeyDeviceInfo) {
        if (auto numbers = ReadNumberList(value)) {
            device->SetDeviceInfo(std::move(*numbers));
        }
    }
}

void DeviceHandler::StoreID(const std::string& value) {
    const bool quoted = value.size() > 1 && value.starts_with('"') && value.ends_with('"');
    const std::lock_guard<std::mutex> lock(idMutex);
    id = quoted ? value.substr(1, value.size() - 2) : value;
}

/// Runs thousands of times a second, so it reuses the memory of the list.
void DeviceHandler::StoreProcessInput(const std::string& value) {
    if (auto bytes = ReadByteList(value, std::move(processInput))) {
        device->SetPDIN(*bytes);
        processInput = std::move(*bytes);
    }
}

void DeviceHandler::StoreMode(const std::string& value) {
    const int mode = ReadSigned(value);
    if (mode != kModeOperate) {
        device->SetPDIN({});
        device->SetPDOUT({});
    }
    LogLine() << "Setting device mode to " << mode;
    device->SetMode(mode);
}

void DeviceHandler::StoreParameter(const std::string& key, const std::string& value) {
    const auto address = ReadParameterKey(key);
    const auto bytes = ReadByteList(value);
    if (address && bytes) {
        device->SetParameter(address->index, address->subindex, *bytes);
    }
}

}  // namespace pellix
