#include "pellix/InputParser.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "pellix/CommandHandler.h"
#include "pellix/DeviceHandler.h"
#include "pellix/Protocol.h"
#include "tests/support/Allocations.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/pellix/InputParserTest.h"

using pellix::Command;
using support::Messages;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr unsigned kEmptyReadsBeforeReopen = 10;

}  // namespace

TEST_F(InputParserTest, AcknowledgementAndFinishInOneRead) {
    const Command* const command = Send("ID");
    Parse("ACK ID\nFIN ID\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    EXPECT_EQ(log.All(),
              (Messages{"Parsing line: ACK ID", "ACK:ID", "Parsing line: FIN ID", "FIN:ID"}));
    EXPECT_EQ(connection->reads, 1U);
}

TEST_F(InputParserTest, AcknowledgementAloneDoesNotFinishTheCommand) {
    const Command* const command = Send("ID");
    Parse("ACK ID\n");
    EXPECT_EQ(command->GetState(), pellix::kAcknowledged);
}

TEST_F(InputParserTest, ErrorLineFailsTheCommandWithItsNumber) {
    const Command* const command = Send("PARAM");
    Parse("ERR PARAM 5\n");
    EXPECT_EQ(command->GetState(), pellix::kFailed);
    EXPECT_EQ(command->GetStatus(), 5);
    EXPECT_EQ(log.All(), (Messages{"Parsing line: ERR PARAM 5", "ERR:PARAM"}));
}

TEST_F(InputParserTest, DataLineGoesToTheDeviceAndFinishesItsQuery) {
    const Command* const command = Send("ID");
    Parse("ID=1234\n");
    EXPECT_EQ(deviceHandler.GetID(), "1234");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    EXPECT_EQ(log.All(), Messages{"Parsing line: ID=1234"});
}

TEST_F(InputParserTest, DataLineWithItsFinFinishesItsQueryOnce) {
    const Command* const command = Send("ID");
    Parse("ID=1234\nFIN ID\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    EXPECT_EQ(log.All(), (Messages{"Parsing line: ID=1234", "Parsing line: FIN ID", "FIN:ID"}));
}

TEST_F(InputParserTest, DataLineFinishesItsQueryWhenAnotherLineFollows) {
    for (const char* const next : {"FIN MODE\n", "FIN IDS\n", "FIN ID", "ACK MODE\n",
                                   "@PDIN=[1]\nFIN MODE\n", "@PDIN=[1]\n", "@PDIN=[1]", "@"}) {
        Command* const command = handler.SendQuery("ID");
        Parse(std::string("ID=1234\n") + next);
        EXPECT_EQ(command->GetState(), pellix::kFinished) << next;
        handler.RemovePending(command);
    }
}

TEST_F(InputParserTest, DataLineAndItsFinWithoutACommandAreBothReported) {
    Parse("ID=1234\nFIN ID\n");
    EXPECT_EQ(log.All(),
              (Messages{"Parsing line: ID=1234", "Active command ID could not be found",
                        "Parsing line: FIN ID", "FIN:ID", "Active command ID could not be found"}));
}

TEST_F(InputParserTest, EventLineFinishesNothingButItsFinDoes) {
    const Command* const command = Send("ID");
    Parse("@ID=1234\n");
    EXPECT_EQ(command->GetState(), pellix::kActive);
    Parse("@ID=1234\nFIN ID\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
}

TEST_F(InputParserTest, FinOfALaterReadFindsTheQueryFinished) {
    const Command* const command = Send("ID");
    Parse("ID=1234\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    Parse("FIN ID\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
}

TEST_F(InputParserTest, ParameterLineFinishesTheQueryOfItsAddress) {
    const Command* const other = Send("PARAM[19][0]");
    const Command* const command = Send("PARAM[21][0]");
    Parse("PARAM[21][0]=[41]\n");
    EXPECT_EQ(other->GetState(), pellix::kActive);
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    EXPECT_EQ(device.GetParameter(21, 0), Bytes{0x41});
}

TEST_F(InputParserTest, EventLineIsAppliedButNotLoggedAndFinishesNothing) {
    const Command* const command = Send("PDIN");
    Parse("@PDIN=[a,b]\n");
    EXPECT_EQ(device.GetPDIN(), (Bytes{10, 11}));
    EXPECT_EQ(command->GetState(), pellix::kActive);
    EXPECT_TRUE(log.All().empty());
}

// The device model ignores a list without its bracket; "ID" shows that the line arrived.
TEST_F(InputParserTest, EventLinePassesKeyAndValueOn) {
    Parse("@PDIN=0A0B\n@ID=0A0B\n");
    EXPECT_TRUE(device.GetPDIN().empty());
    EXPECT_EQ(deviceHandler.GetID(), "0A0B");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(InputParserTest, EventMarkHasNoEffectOnStatusLines) {
    const Command* const command = Send("ID");
    Parse("@ACK ID\n");
    EXPECT_EQ(command->GetState(), pellix::kAcknowledged);
    Parse("@FIN ID\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    Parse("@ERR ID 7\n");
    EXPECT_EQ(command->GetState(), pellix::kFailed);
    EXPECT_EQ(log.All(), (Messages{"ACK:ID", "FIN:ID", "ERR:ID"}));
}

TEST_F(InputParserTest, OnlyOneEventMarkIsRemoved) {
    Parse("@@ID=1\n");
    EXPECT_EQ(deviceHandler.GetID(), "");
}

TEST_F(InputParserTest, DataLineWithoutACommandIsAppliedAndReported) {
    Parse("ID=1234\n");
    EXPECT_EQ(deviceHandler.GetID(), "1234");
    EXPECT_EQ(log.All(),
              (Messages{"Parsing line: ID=1234", "Active command ID could not be found"}));
}

TEST_F(InputParserTest, StatusLineIsRecognisedByItsFirstThreeCharacters) {
    const Command* const command = Send("ID");
    Parse("ACKNOWLEDGED ID\n");
    EXPECT_EQ(command->GetState(), pellix::kAcknowledged);
    Parse("FIN=1 ID more fields\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
}

TEST_F(InputParserTest, StatusWordsAreCaseSensitive) {
    const Command* const command = Send("ID");
    Parse("fin ID\nAC ID\n ACK ID\n");
    EXPECT_EQ(command->GetState(), pellix::kActive);
}

TEST_F(InputParserTest, FieldsOfAStatusLineAreSeparatedBySingleBlanks) {
    const Command* const command = Send("ID");
    Parse("FIN  ID\nFIN\nFIN\tID\n");
    EXPECT_EQ(command->GetState(), pellix::kActive);
    EXPECT_EQ(log.BeginningWith("FIN"), (Messages{"FIN:", "FIN:", "FIN:"}));
}

TEST_F(InputParserTest, CarriageReturnIsPartOfTheLine) {
    const Command* const command = Send("ID");
    Parse("FIN ID\r\n");
    EXPECT_EQ(command->GetState(), pellix::kActive);
    EXPECT_TRUE(log.Contains("Active command ID\r could not be found"));
}

TEST_F(InputParserTest, ValueEndsAtASecondEqualsSign) {
    Parse("ID=12=34\nMODE==4\n");
    EXPECT_EQ(deviceHandler.GetID(), "12");
    EXPECT_EQ(device.GetMode(), 0);
}

TEST_F(InputParserTest, LineWithoutEqualsSignIsAKeyWithoutValue) {
    const Command* const command = Send("GARBAGE");
    Parse("GARBAGE\n");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
}

TEST_F(InputParserTest, EmptyLinesAreSkipped) {
    Parse("\n\nID=1\n\n");
    EXPECT_EQ(deviceHandler.GetID(), "1");
    EXPECT_EQ(log.All(), (Messages{"Line length is 0 without eof", "Line length is 0 without eof",
                                   "Parsing line: ID=1", "Active command ID could not be found",
                                   "Line length is 0 without eof"}));
}

TEST_F(InputParserTest, UnusualLinesAreHarmless) {
    for (const std::string line : {"@", "=", "@=", "==", "@@", "A", "AC", "@A", " ", "\r", "[",
                                   "PARAM", "PARAM[=", "\xFF"}) {
        EXPECT_NO_THROW(Parse(line + "\n")) << line;
    }
    Parse("ID=1\n");
    EXPECT_EQ(deviceHandler.GetID(), "1");
}

TEST_F(InputParserTest, ZeroBytesAreOrdinaryCharacters) {
    const std::string zero(1, '\0');
    Parse("I" + zero + "D=1\n" + zero + "\nID=a" + zero + "b\n");
    EXPECT_EQ(deviceHandler.GetID(), "a" + zero + "b");
}

TEST_F(InputParserTest, LastLineWithoutItsLineFeedIsLost) {
    const Command* const command = Send("ID");
    Parse("ACK ID\nFIN I");
    Parse("D\n");
    EXPECT_EQ(command->GetState(), pellix::kAcknowledged);
    EXPECT_EQ(log.BeginningWith("Parsing line"),
              (Messages{"Parsing line: ACK ID", "Parsing line: D"}));
}

TEST_F(InputParserTest, NextInputClearsAStreamAtItsEnd) {
    Parse("FIN I");
    EXPECT_TRUE(log.All().empty());
    Parse("@ID=1\n");
    Parse("@ID=2\n");
    EXPECT_EQ(deviceHandler.GetID(), "2");
    EXPECT_EQ(log.All(), Messages{"Clearing previous input stream error: 2"});
}

// Lines that are complete within one read are handled; a split line loses its first part.
TEST_F(InputParserTest, InputSplitAnywhereGivesTheCompleteLinesOfEachRead) {
    const std::string text = "ACK ID\nID=PELLIX\n\nFIN ID\n@MODE=4\nPDIN=[1,2]\n";
    for (std::size_t first = 0; first <= text.size(); ++first) {
        for (std::size_t second = first; second <= text.size(); ++second) {
            Messages expected;
            log.Clear();
            for (const std::string& piece :
                 {text.substr(0, first), text.substr(first, second - first), text.substr(second)}) {
                std::string line;
                for (const char c : piece) {
                    if (c != '\n') {
                        line += c;
                        continue;
                    }
                    if (!line.empty() && line[0] != '@') {
                        expected.push_back("Parsing line: " + line);
                    }
                    line.clear();
                }
                if (!piece.empty()) {  // a silent pass pauses
                    ASSERT_NO_THROW(Parse(piece));
                }
            }
            ASSERT_EQ(log.BeginningWith("Parsing line"), expected) << first << " " << second;
        }
    }
}

TEST_F(InputParserTest, InvalidErrorNumberThrowsOutOfTheParser) {
    const Command* const command = Send("ID");
    for (const char* line : {"ERR ID x\n", "ERR ID\n", "ERR\n"}) {
        EXPECT_THROW(Parse(line), std::invalid_argument) << line;
        handler.Parse();  // looks for further lines
    }
    EXPECT_THROW(Parse("ERR ID 99999999999\n"), std::out_of_range);
    EXPECT_EQ(command->GetState(), pellix::kActive);
    EXPECT_EQ(log.BeginningWith("ERR"), (Messages{"ERR:ID", "ERR:ID", "ERR:", "ERR:ID"}));
}

TEST_F(InputParserTest, LinesAfterAnInvalidOneAreHandledWithoutAnotherRead) {
    const Command* const command = Send("ID");
    EXPECT_THROW(Parse("@MODE=3\nERR ID x\nACK ID\nERR\nFIN ID\n"), std::invalid_argument);
    EXPECT_EQ(device.GetMode(), 3);
    EXPECT_THROW(handler.Parse(), std::invalid_argument);
    EXPECT_EQ(command->GetState(), pellix::kAcknowledged);
    handler.Parse();
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    EXPECT_EQ(connection->reads, 1U);
    Parse("@MODE=4\n");  // no lines are left, so the pass handles its own input
    EXPECT_EQ(device.GetMode(), 4);
    EXPECT_EQ(connection->reads, 2U);
    EXPECT_TRUE(log.BeginningWith("Clearing").empty());
}

TEST_F(InputParserTest, InvalidLineAtTheEndLeavesNoInputBehind) {
    EXPECT_THROW(Parse("ERR X\n"), std::invalid_argument);
    handler.Parse();
    EXPECT_EQ(connection->reads, 1U);
    log.Clear();
    Parse("@ID=1\n");
    EXPECT_EQ(deviceHandler.GetID(), "1");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(InputParserTest, PartialLineAfterAnInvalidOneIsLost) {
    EXPECT_THROW(Parse("ERR X\n@ID=1\n@ID=2"), std::invalid_argument);
    handler.Parse();
    EXPECT_EQ(deviceHandler.GetID(), "1");
    Parse("3\n");
    EXPECT_EQ(deviceHandler.GetID(), "1");
}

TEST_F(InputParserTest, SignOfLifeComesWithEvery2502ndProcessDataLine) {
    for (int line = 1; line <= 2 * 2502; ++line) {
        Parse("@PDIN=[1]\n");
        const std::size_t expected = line < 2502 ? 0 : line < 5004 ? 1 : 2;
        if (line % 2502 < 2 || line % 2502 > 2500) {
            ASSERT_EQ(log.Count("PDIN active"), expected) << line;
        }
    }
    EXPECT_EQ(log.All(), (Messages{"PDIN active", "PDIN active"}));
}

TEST_F(InputParserTest, OnlyProcessInputDataCountsForTheSignOfLife) {
    std::string lines;
    for (int line = 0; line < 2502; ++line) {
        lines += "@PDOUT=[1]\n@PDINX=1\n";
    }
    Parse(lines);
    EXPECT_FALSE(log.Contains("PDIN active"));
    Parse("@PDIN=[1]\n");
    EXPECT_FALSE(log.Contains("PDIN active"));
}

TEST_F(InputParserTest, EverySilentPassIsLoggedAndPauses) {
    const auto waited = support::Measure([&] {
        for (unsigned pass = 0; pass < kEmptyReadsBeforeReopen; ++pass) {
            handler.Parse();
        }
    });
    EXPECT_EQ(log.All(), Messages(kEmptyReadsBeforeReopen, "Parser: No input data"));
    EXPECT_EQ(connection->reads, kEmptyReadsBeforeReopen);
    EXPECT_EQ(connection->reopens, 0U);
    EXPECT_GE(waited, std::chrono::milliseconds(40));
}

TEST_F(InputParserTest, ElevenSilentPassesReopenTheConnectionOnce) {
    for (unsigned round = 1; round <= 3; ++round) {
        for (unsigned pass = 0; pass < kEmptyReadsBeforeReopen; ++pass) {
            handler.Parse();
        }
        EXPECT_EQ(connection->reopens, round - 1);
        handler.Parse();
        EXPECT_EQ(connection->reopens, round);
    }
    EXPECT_EQ(connection->reads, 33U);
    EXPECT_EQ(log.All(), Messages(33, "Parser: No input data"));
}

TEST_F(InputParserTest, AnyInputResetsTheCountOfSilentPasses) {
    for (const char* input : {"@EV=1\n", "half a line"}) {
        for (unsigned pass = 0; pass < kEmptyReadsBeforeReopen; ++pass) {
            handler.Parse();
        }
        Parse(input);
    }
    for (unsigned pass = 0; pass < kEmptyReadsBeforeReopen; ++pass) {
        handler.Parse();
    }
    EXPECT_EQ(connection->reopens, 0U);
    handler.Parse();
    EXPECT_EQ(connection->reopens, 1U);
}

TEST_F(InputParserTest, FailedReopenIsRetriedBeforeTheNextRead) {
    connection->failingReopens = 3;
    for (unsigned pass = 0; pass <= kEmptyReadsBeforeReopen; ++pass) {
        handler.Parse();
    }
    EXPECT_EQ(connection->reopens, 1U);
    EXPECT_EQ(connection->reads, 11U);
    connection->input.emplace_back("@ID=1\n");
    const auto waited = support::Measure([&] {
        handler.Parse();
        handler.Parse();
    });
    EXPECT_EQ(connection->reopens, 3U);
    EXPECT_EQ(connection->reads, 11U);
    EXPECT_GE(waited, std::chrono::milliseconds(8));
    handler.Parse();  // reopens and reads in one pass
    EXPECT_EQ(connection->reopens, 4U);
    EXPECT_EQ(connection->reads, 12U);
    EXPECT_EQ(deviceHandler.GetID(), "1");
    Parse("@ID=2\n");
    EXPECT_EQ(connection->reopens, 4U);
    EXPECT_EQ(log.All(), Messages(11, "Parser: No input data"));
}

TEST_F(InputParserTest, ThrownPointerOfAFailedReopenIsDeleted) {
    for (unsigned pass = 0; pass < kEmptyReadsBeforeReopen; ++pass) {
        handler.Parse();
    }
    connection->failingReopens = 50;
    const std::size_t before = support::LiveBytes();
    while (connection->failingReopens > 0) {
        handler.Parse();
    }
    EXPECT_EQ(support::LiveBytes(), before);
}
