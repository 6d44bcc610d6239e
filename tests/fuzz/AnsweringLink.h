#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pellix/Pellix.h"
#include "tests/fuzz/InputBytes.h"
#include "tests/support/FakeConnection.h"

/// A link without threads, whose device model and whose replies are taken from an input: a request
/// is answered, or its time is over, while it is written.
///
/// The model: process input and output data, device information, parameters, each a length and as
/// many elements. A reply: its kind (modulo 6) and
///   0  nothing: acknowledged and finished     1  an error number
///   2  the elements of a data line            3  a text, any lines
///   4  nothing: the write fails               5  nothing: silence
class AnsweringLink {
public:
    using Bytes = std::vector<std::uint8_t>;
    using Numbers = std::vector<std::uint32_t>;

    /// @param bytes outlives the link
    explicit AnsweringLink(InputBytes& bytes);
    AnsweringLink(const AnsweringLink&) = delete;
    AnsweringLink& operator=(const AnsweringLink&) = delete;

    /// Before each operation: what RequireSent() and the like look at begins here.
    void Begin();

    void RequireSent(const std::string& text) const;
    void RequireNothingSent() const;

    /// `result` is that of the request, as far as the reply tells it.
    void RequireStatus(unsigned result) const;

    pellix::Pellix& Link() { return link; }
    Bytes Pdin() const { return link.GetDevice().GetPDIN(); }
    Bytes Pdout() const { return link.GetDevice().GetPDOUT(); }
    Numbers DeviceInfo() const { return link.GetDevice().GetDeviceInfo(); }

    InputBytes& input;

private:
    void FillDevice();
    void Answer();
    std::string DataLine(const std::string& key);
    void Receive(const std::string& text, std::optional<unsigned> result);

    pellix::Pellix& link;
    support::FakeConnection* line = nullptr;  // owned by the link
    std::size_t sentBefore = 0;
    std::optional<unsigned> status;
};
