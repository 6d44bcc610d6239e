#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Parameter.h"

namespace pellix {

/// What the master last reported about the IO-Link device on its port.
///
/// Threads: the parser thread writes, any thread reads. Getters return copies; setters replace
/// the whole member. Each takes exactly one lock.
class Device {
public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    virtual ~Device();

    /// Stores the value bytes of (index, subindex), as a new parameter when it is the first.
    virtual void SetParameter(unsigned index, unsigned subindex,
                              const std::vector<std::uint8_t>& value);

    /// Empty when nothing is known of (index, subindex).
    virtual std::vector<std::uint8_t> GetParameter(unsigned index, unsigned subindex);

    /// Another number whenever a parameter may have changed.
    unsigned GetParameterRevision() const { return parameterRevision; }

    /// Process input data, first byte first.
    virtual std::vector<std::uint8_t> GetPDIN();
    virtual void SetPDIN(const std::vector<std::uint8_t>& bytes);

    /// Process output data as the master last reported it, first byte first.
    virtual std::vector<std::uint8_t> GetPDOUT();
    virtual void SetPDOUT(const std::vector<std::uint8_t>& bytes);

    /// The numbers of the last "DEVINFO" line, in order.
    virtual std::vector<std::uint32_t> GetDeviceInfo();

    /// Replaces the device information and fills empty process data with zeros of the length
    /// that elements 3 (PDIN) and 4 (PDOUT), in bits, tell.
    virtual void SetDeviceInfo(std::vector<std::uint32_t> numbers);

    /// Data-link mode code, kModeNone at first.
    int GetMode() const { return mode; }

    /// Stores the mode; the modes that mean another or a restarted device forget all data.
    void SetMode(int newMode);

private:
    void ClearData();
    Parameter* FindParameter(int index, int subindex) const;

    std::vector<std::uint8_t> pdin;
    std::vector<std::uint8_t> pdout;
    std::vector<std::uint32_t> deviceInfo;
    std::vector<Parameter*> parameters;           // owned; in order of first appearance
    std::mutex parameterMutex;                    // guards parameters
    std::mutex pdinMutex;                         // guards pdin
    std::mutex pdoutMutex;                        // guards pdout
    std::mutex deviceInfoMutex;                   // guards deviceInfo
    std::atomic<unsigned> parameterRevision = 0;  // raised after each change of parameters
    std::atomic<int> mode = 0;
    const std::string name = "Generic IO-Link Device";
    const std::string type = "generic";
};

}  // namespace pellix
