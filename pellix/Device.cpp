#include "pellix/Device.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "common/LogLine.h"
#include "pellix/Protocol.h"

namespace pellix {

namespace {

constexpr std::size_t kPdinBits = 3;   // element of the device information
constexpr std::size_t kPdoutBits = 4;  // element of the device information

// Far more than an IO-Link device can have; a larger length is invalid and allocates nothing.
constexpr std::uint32_t kMostProcessDataBytes = 65536;

// A gripper has about a hundred. Without a limit, a faulty master could use up the memory and slow
// down every lookup, because lookups search the parameters of all masters.
constexpr std::size_t kMostParameters = 4096;

std::uint32_t ElementOrZero(const std::vector<std::uint32_t>& numbers, std::size_t element) {
    return element < numbers.size() ? numbers[element] : 0;
}

void FillIfEmpty(std::vector<std::uint8_t>& bytes, std::uint32_t bits, std::mutex& guard) {
    const std::uint32_t length = bits / 8;
    const std::lock_guard<std::mutex> lock(guard);
    if (bytes.empty() && length <= kMostProcessDataBytes) {
        bytes.resize(length);
    }
}

}  // namespace

Device::~Device() {
    for (const Parameter* parameter : parameters) {
        delete parameter;
    }
}

void Device::SetParameter(unsigned index, unsigned subindex,
                          const std::vector<std::uint8_t>& value) {
    const int wantedIndex = static_cast<int>(index);
    const int wantedSubindex = static_cast<int>(subindex);
    const std::lock_guard<std::mutex> lock(parameterMutex);
    if (Parameter* const parameter = FindParameter(wantedIndex, wantedSubindex)) {
        LogLine() << "Updating parameter " << index << " / " << subindex;
        parameter->SetValue(value);
        ++parameterRevision;
        return;
    }
    if (parameters.size() >= kMostParameters) {
        LogLine() << "Too many parameters: " << index << " / " << subindex << " ignored";
        return;
    }
    LogLine() << "Creating parameter " << index << " / " << subindex;
    auto parameter = std::make_unique<Parameter>(wantedIndex, wantedSubindex, value);
    parameters.push_back(parameter.get());
    (void)parameter.release();  // parameters owns it from here on
    ++parameterRevision;
}

std::vector<std::uint8_t> Device::GetParameter(unsigned index, unsigned subindex) {
    {
        const std::lock_guard<std::mutex> lock(parameterMutex);
        if (const Parameter* const parameter =
                FindParameter(static_cast<int>(index), static_cast<int>(subindex))) {
            return parameter->GetValue();
        }
    }
    LogLine() << "Parameter " << index << " / " << subindex << " not found";
    return {};
}

Parameter* Device::FindParameter(int index, int subindex) const {
    const auto found =
        std::find_if(parameters.begin(), parameters.end(), [&](const Parameter* parameter) {
            return parameter->GetIndex() == index && parameter->GetSubindex() == subindex;
        });
    return found == parameters.end() ? nullptr : *found;
}

std::vector<std::uint8_t> Device::GetPDIN() {
    const std::lock_guard<std::mutex> lock(pdinMutex);
    return pdin;
}

void Device::SetPDIN(const std::vector<std::uint8_t>& bytes) {
    const std::lock_guard<std::mutex> lock(pdinMutex);
    pdin = bytes;  // reuses the memory: PDIN lines come thousands of times a second
}

std::vector<std::uint8_t> Device::GetPDOUT() {
    const std::lock_guard<std::mutex> lock(pdoutMutex);
    return pdout;
}

void Device::SetPDOUT(const std::vector<std::uint8_t>& bytes) {
    const std::lock_guard<std::mutex> lock(pdoutMutex);
    pdout = bytes;
}

std::vector<std::uint32_t> Device::GetDeviceInfo() {
    const std::lock_guard<std::mutex> lock(deviceInfoMutex);
    return deviceInfo;
}

void Device::SetDeviceInfo(std::vector<std::uint32_t> numbers) {
    const std::uint32_t pdinBits = ElementOrZero(numbers, kPdinBits);
    const std::uint32_t pdoutBits = ElementOrZero(numbers, kPdoutBits);
    {
        const std::lock_guard<std::mutex> lock(deviceInfoMutex);
        deviceInfo = std::move(numbers);
    }
    LogLine() << "DEVICE_INFO: " << pdinBits << "/" << pdoutBits;
    FillIfEmpty(pdin, pdinBits, pdinMutex);
    FillIfEmpty(pdout, pdoutBits, pdoutMutex);
}

void Device::SetMode(int newMode) {
    mode = newMode;
    if (newMode == kModePowerFault || newMode == kModeEstablishCommunication) {
        ClearData();
    }
}

// On purpose: takes no lock, so that a mode change never waits for a reader. Another thread may be
// copying a value meanwhile: for its sake, the parameters are dropped without being freed, and
// clear() frees no storage, so that it gets old bytes or none.
// tests/support/tsan.supp lists the race, lsan.supp the leak.
void Device::ClearData() {
    pdin.clear();
    pdout.clear();
    deviceInfo.clear();
    parameters.clear();
    ++parameterRevision;
}

}  // namespace pellix
