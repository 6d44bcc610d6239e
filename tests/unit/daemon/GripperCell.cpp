#include "tests/unit/daemon/GripperCell.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "pellix/CorvaneGripper.h"
#include "pellix/Protocol.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/daemon/FakeUdev.h"

using support::FakeMaster;
using support::WaitFor;

namespace {

constexpr const char* kPdoutIsRead = "Pending command PDOUT deleted (Status: 0).";

unsigned ModelId(const std::string& model) {
    static const std::map<std::string, unsigned> ids{
        {"TLM", 10}, {"HVA", 20}, {"MZD-S", 40}, {"MZD-L", 50}};
    return ids.at(model);
}

/// @return for example "[48,56,41]" for "HVA"
std::string TextAsBytes(const std::string& text) {
    std::ostringstream bytes;
    bytes << std::hex;
    char separator = '[';
    for (const char c : text) {
        bytes << separator << static_cast<int>(c);
        separator = ',';
    }
    return bytes.str() + ']';
}

void SetParameters(FakeMaster& master) {
    static const std::map<std::string, std::string> parameters{
        // Checksum.
        {"PARAM[3][4]", "[78,56,34,f2]"},
        // Grip override, release override, reference direction.
        {"PARAM[64][1]", "[fa]"},
        {"PARAM[64][2]", "[c8]"},
        {"PARAM[64][3]", "[ff]"},
        // No-part limit, release limit and force of set 2.
        {"PARAM[98][1]", "[ff,38]"},
        {"PARAM[98][2]", "[9,c4]"},
        {"PARAM[98][3]", "[64]"},
        // Animation, colour and speed of LED 2.
        {"PARAM[130][1]", "[3]"},
        {"PARAM[130][2]", "[4]"},
        {"PARAM[130][3]", "[5]"},
    };
    for (const auto& [key, value] : parameters) {
        SetValue(master, key, value);
    }
}

}  // namespace

GripperCell::~GripperCell() {
    while (!masters.empty()) {
        Unplug(masters.front());
    }
}

GripperManager& GripperCell::Manager() {
    static auto* const manager = new GripperManager;
    return *manager;
}

FakeMaster& GripperCell::Plug(const std::string& model, const std::string& serial) {
    Manager();
    FakeMaster& master = masters.emplace_back();
    SetValue(master, "DEVINFO",
             "[1,2,3,32,16,5,6," + std::to_string(pellix::kCorvaneVendorId) + "," +
                 std::to_string(ModelId(model)) + "]");
    SetValue(master, "PARAM[19][0]", TextAsBytes(model));
    SetValue(master, "PARAM[21][0]", TextAsBytes(serial));
    SetValue(master, "PDOUT", kPdout);
    SetParameters(master);

    const std::size_t before = log.Count(kPdoutIsRead);
    EXPECT_TRUE(fake_udev::Send("add", master.Path()));
    EXPECT_TRUE(WaitFor([&] { return log.Count(kPdoutIsRead) > before; }));
    EXPECT_TRUE(ReportPdin(master, model + " SN:" + serial, kPdin));
    master.ClearRequests();
    return master;
}

void GripperCell::Unplug(FakeMaster& master) {
    const std::string node = master.Path();
    master.Unplug();
    EXPECT_TRUE(fake_udev::Send("remove", node));
    masters.remove_if([&](const FakeMaster& other) { return &other == &master; });
}

void SetValue(FakeMaster& master, const std::string& key, const std::string& value) {
    master.SetAnswers(key + "?", {key + "=" + value + "\n"});
}

bool ReportPdin(const FakeMaster& master, const std::string& device, const std::string& pdin) {
    const LinkInUse link = GripperCell::Manager().GetLink(device);
    if (link == nullptr) {
        return false;
    }
    master.Send("@PDIN=" + pdin + "\n");
    return WaitFor([&] { return pellix::FormatByteList(link->GetDevice().GetPDIN()) == pdin; });
}
