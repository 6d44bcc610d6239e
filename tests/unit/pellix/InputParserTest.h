#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pellix/CommandHandler.h"
#include "pellix/DeviceHandler.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"

/// A parser whose input the test provides.
class InputParserTest : public testing::Test {
protected:
    /// Runs one pass over `text`.
    void Parse(const std::string& text) {
        connection->input.push_back(text);
        handler.Parse();
    }

    /// Sends a command; the fixture removes it.
    pellix::Command* Send(const std::string& name) {
        pellix::Command* const command = handler.SendQuery(name);
        commands.push_back(command);
        log.Clear();
        return command;
    }

    void TearDown() override {
        for (pellix::Command* const command : commands) {
            handler.RemovePending(command);
        }
    }

    support::LogCapture log;
    pellix::DeviceHandler deviceHandler;
    pellix::Device& device = deviceHandler.GetDevice();
    support::FakeConnection* connection = new support::FakeConnection;  // owned by the handler
    pellix::CommandHandler handler{connection, &deviceHandler, 1.0};
    std::vector<pellix::Command*> commands;
};
