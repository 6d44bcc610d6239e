#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pellix/Pellix.h"
#include "tests/fuzz/InputBytes.h"
#include "tests/support/FakeConnection.h"

/// A link without threads, whose device model and replies come from a fuzzer input. Each request is
/// answered, or times out, while it is written.
///
/// The input has the model: process input and output data, device information and parameters, each
/// a length and as many elements. A reply in the input is its kind (modulo 6) and its data:
///   0  acknowledged and finished, no data     1  an error number
///   2  the elements of a data line            3  a text, any lines
///   4  the write fails, no data               5  no reply, no data
class AnsweringLink {
public:
    using Bytes = std::vector<std::uint8_t>;
    using Numbers = std::vector<std::uint32_t>;

    /// @param bytes outlives the link
    explicit AnsweringLink(InputBytes& bytes);
    AnsweringLink(const AnsweringLink&) = delete;
    AnsweringLink& operator=(const AnsweringLink&) = delete;

    /// To be called before each operation: the Require functions check what happened since.
    void Begin();

    void RequireSent(const std::string& text) const;
    void RequireNothingSent() const;

    /// Requires that `result` is that of the request, if the reply determines it.
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
