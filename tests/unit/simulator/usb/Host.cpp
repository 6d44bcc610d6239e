#include "tests/unit/simulator/usb/Host.h"

#include <gtest/gtest.h>

#include <utility>

namespace simulator::host {

namespace {

constexpr std::size_t kHeaderLength = 48;

std::uint32_t Word(std::string_view bytes, std::size_t offset) {
    std::uint32_t word = 0;
    for (const char character : bytes.substr(offset, 4)) {
        word = word << 8U | static_cast<std::uint8_t>(character);
    }
    return word;
}

}  // namespace

std::string Header(const std::vector<std::uint32_t>& words) {
    std::string header;
    for (const std::uint32_t word : words) {
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            header += static_cast<char>(word >> shift & 0xffU);
        }
    }
    header.resize(kHeaderLength);
    return header;
}

std::string InTransfer(std::uint32_t sequence, std::uint32_t endpoint, std::uint32_t length) {
    return Header({1, sequence, 1, 1, endpoint, 0, length});
}

std::string OutTransfer(std::uint32_t sequence, std::uint32_t endpoint, std::string_view data) {
    const auto length = static_cast<std::uint32_t>(data.size());
    return Header({1, sequence, 1, 0, endpoint, 0, length}).append(data);
}

std::string ControlTransfer(std::uint32_t sequence, std::string_view setup, std::string_view data) {
    const bool toHost = (static_cast<std::uint8_t>(setup[0]) & 0x80U) != 0;
    const auto room = static_cast<std::uint32_t>(static_cast<std::uint8_t>(setup[6]) |
                                                 static_cast<std::uint8_t>(setup[7]) << 8U);
    std::string message = Header(
        {1, sequence, 1, toHost ? 1U : 0U, 0, 0, toHost ? room : std::uint32_t(data.size())});
    message.replace(40, setup.size(), setup);
    return message.append(data);
}

std::string Unlink(std::uint32_t sequence, std::uint32_t target) {
    return Header({2, sequence, 1, 0, 0, target});
}

std::vector<Reply> ReadReplies(std::string_view bytes, bool toHost) {
    std::vector<Reply> replies;
    while (bytes.size() >= kHeaderLength) {
        Reply reply{Word(bytes, 0), Word(bytes, 4), static_cast<int>(Word(bytes, 20)),
                    Word(bytes, 24), ""};
        bytes.remove_prefix(kHeaderLength);
        if (toHost && reply.command == kSubmitReply) {
            reply.data = bytes.substr(0, reply.length);
            bytes.remove_prefix(reply.data.size());
        }
        replies.push_back(std::move(reply));
    }
    EXPECT_TRUE(bytes.empty()) << "a cut reply";
    return replies;
}

}  // namespace simulator::host
