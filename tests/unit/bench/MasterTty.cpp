#include "tests/unit/bench/MasterTty.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "tests/support/WaitFor.h"

namespace bench {

namespace {

constexpr int kPatienceMs = std::chrono::milliseconds(support::kPatience).count();

}  // namespace

MasterTty::MasterTty(const std::string& path) : tty(open(path.c_str(), O_RDWR | O_NOCTTY)) {
    EXPECT_NE(tty.Get(), -1);
}

void MasterTty::Send(std::string_view text) const {
    EXPECT_EQ(write(tty.Get(), text.data(), text.size()), std::ssize(text));
}

std::string MasterTty::Read(std::size_t length) const {
    std::string text;
    while (text.size() < length) {
        const std::string piece = ReadAtMost(length - text.size());
        if (piece.empty()) {
            break;
        }
        text += piece;
    }
    return text;
}

/// @return nothing when nothing comes, or the tty is hung up
std::string MasterTty::ReadAtMost(std::size_t length) const {
    pollfd entry{tty.Get(), POLLIN, 0};
    std::array<char, 4096> buffer{};
    if (poll(&entry, 1, kPatienceMs) != 1) {
        return {};
    }
    const ssize_t count = read(tty.Get(), buffer.data(), std::min(buffer.size(), length));
    return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0U};
}

std::size_t CountOf(std::string_view part, const std::string& text) {
    std::size_t count = 0;
    for (auto place = text.find(part); place != std::string::npos;
         place = text.find(part, place + part.size())) {
        ++count;
    }
    return count;
}

}  // namespace bench
