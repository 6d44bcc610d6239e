#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace simulator::host {

/// A header of 48 bytes: these 32-bit words, then zeros.
std::string Header(const std::vector<std::uint32_t>& words);

/// Messages of the kernel.
std::string InTransfer(std::uint32_t sequence, std::uint32_t endpoint, std::uint32_t length);
std::string OutTransfer(std::uint32_t sequence, std::uint32_t endpoint, std::string_view data);
std::string Unlink(std::uint32_t sequence, std::uint32_t target);

/// @param setup eight bytes; the first tells the direction
std::string ControlTransfer(std::uint32_t sequence, std::string_view setup,
                            std::string_view data = {});

/// A message to the kernel.
struct Reply {
    std::uint32_t command = 0;
    std::uint32_t sequence = 0;
    int status = 0;
    std::uint32_t length = 0;
    std::string data;
    bool operator==(const Reply&) const = default;
};

constexpr std::uint32_t kSubmitReply = 3;
constexpr std::uint32_t kUnlinkReply = 4;

/// @param toHost whether the data of replies to transfers follow their header
std::vector<Reply> ReadReplies(std::string_view bytes, bool toHost);

}  // namespace simulator::host
