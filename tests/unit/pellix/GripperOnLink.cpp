#include "tests/unit/pellix/GripperOnLink.h"

#include "pellix/Protocol.h"
#include "tests/support/WaitFor.h"

void GripperOnLink::SetUp() {
    link = std::make_unique<pellix::Pellix>(master.Path());
    ASSERT_EQ(link->Init(), pellix::kResultOk);
    // The link's last own request. Its timeout monitor may start even later.
    ASSERT_TRUE(support::WaitFor([this] {
        return log.Contains("Pending command PDOUT deleted (Status: 0).") &&
               log.Contains("Timeout monitor thread active");
    }));
    master.ClearRequests();
}

void GripperOnLink::TearDown() {
    master.Unplug();  // ends the parser's read
    link.reset();
}

GripperOnLink::Lines GripperOnLink::TakeRequests() {
    Lines requests = master.Requests();
    master.ClearRequests();
    return requests;
}

void GripperOnLink::SetDeviceInfo(std::size_t count, std::uint32_t vendor, std::uint32_t model) {
    std::string list;
    for (std::size_t element = 0; element < count; ++element) {
        const std::uint32_t number = element == 7 ? vendor : element == 8 ? model : 1;
        list += (element == 0 ? "" : ",") + std::to_string(number);
    }
    master.SetValue("DEVINFO", "[" + list + "]");
}
