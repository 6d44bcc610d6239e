#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Parameter.h"

namespace pellix {

/// Model of the IO-Link device behind a master: the data that the master last reported.
///
/// Threads: the parser thread calls the setters, any thread the getters. Getters return copies,
/// setters replace the whole value.
class Device {
public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    virtual ~Device();

    /// Stores the value of (index, subindex), first byte first. Of more than 4096 parameters the
    /// rest is dropped (logged).
    virtual void SetParameter(unsigned index, unsigned subindex,
                              const std::vector<std::uint8_t>& value);

    /// @return the stored value; empty if there is none (logged)
    virtual std::vector<std::uint8_t> GetParameter(unsigned index, unsigned subindex);

    /// @return a number that changes whenever a parameter may have changed
    unsigned GetParameterRevision() const { return parameterRevision; }

    /// Process input data, first byte first.
    virtual std::vector<std::uint8_t> GetPDIN();
    virtual void SetPDIN(const std::vector<std::uint8_t>& bytes);

    /// Process output data as the master last reported it, first byte first.
    virtual std::vector<std::uint8_t> GetPDOUT();
    virtual void SetPDOUT(const std::vector<std::uint8_t>& bytes);

    /// The numbers of the last "DEVINFO" line, in order.
    virtual std::vector<std::uint32_t> GetDeviceInfo();

    /// Replaces the device information. Process data that are empty are filled with zeros, to the
    /// length in bits that element 3 (PDIN) or 4 (PDOUT) gives.
    virtual void SetDeviceInfo(std::vector<std::uint32_t> numbers);

    /// @return data-link mode code; kModeNone at first
    int GetMode() const { return mode; }

    /// Stores the mode. kModePowerFault and kModeEstablishCommunication, after which another device
    /// may answer, also clear all data.
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
    std::atomic<unsigned> parameterRevision = 0;  // incremented after each change of parameters
    std::atomic<int> mode = 0;
    // Describe the object in a debugger; nothing reads them.
    const std::string name = "Generic IO-Link Device";
    const std::string type = "generic";
};

}  // namespace pellix
