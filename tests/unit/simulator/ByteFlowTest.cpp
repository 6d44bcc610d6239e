#include "simulator/ByteFlow.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

#include "simulator/FileDescriptor.h"

namespace simulator {
namespace {

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
        readEnd = FileDescriptor(ends[0]);
        writeEnd = FileDescriptor(ends[1]);
    }

    std::string Read() const {
        std::string all;
        std::array<char, 4096> buffer{};
        for (ssize_t count = 1; count > 0;) {
            count = read(readEnd.Get(), buffer.data(), buffer.size());
            all.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        }
        return all;
    }

    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

class ByteFlowTest : public testing::Test {
protected:
    Pipe source;
    Pipe sink;
    ByteFlow flow;
};

TEST_F(ByteFlowTest, TakesFromOneAndGivesToTheOther) {
    ASSERT_EQ(write(source.writeEnd.Get(), "a\0b", 3), 3);
    EXPECT_EQ(flow.Fill(source.readEnd.Get()), std::string_view("a\0b", 3));
    EXPECT_TRUE(flow.IsWaiting());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_FALSE(flow.IsWaiting());
    EXPECT_EQ(sink.Read(), std::string("a\0b", 3));
}

TEST_F(ByteFlowTest, NothingIsThereAndNothingWaits) {
    EXPECT_EQ(flow.Fill(source.readEnd.Get()), "");
    EXPECT_FALSE(flow.IsWaiting());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_EQ(sink.Read(), "");
}

TEST_F(ByteFlowTest, TheRestWaitsForRoom) {
    const int capacity = fcntl(sink.writeEnd.Get(), F_SETPIPE_SZ, 4096);
    ASSERT_EQ(capacity, 4096);
    const std::string first(4095, 'x');
    ASSERT_EQ(write(sink.writeEnd.Get(), first.data(), first.size()), 4095);
    ASSERT_EQ(write(source.writeEnd.Get(), "abc", 3), 3);
    flow.Fill(source.readEnd.Get());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_TRUE(flow.IsWaiting());
    std::string all = sink.Read();
    flow.Drain(sink.writeEnd.Get());
    EXPECT_FALSE(flow.IsWaiting());
    EXPECT_EQ(all + sink.Read(), first + "abc");
}

TEST_F(ByteFlowTest, WhatWaitsCanBeDropped) {
    ASSERT_EQ(write(source.writeEnd.Get(), "abc", 3), 3);
    flow.Fill(source.readEnd.Get());
    flow.Drop();
    EXPECT_FALSE(flow.IsWaiting());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_EQ(sink.Read(), "");
}

}  // namespace
}  // namespace simulator
