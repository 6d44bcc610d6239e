#include "doctor/Service.h"

#include <gtest/gtest.h>

#include "doctor/Host.h"
#include "tests/unit/doctor/FakeFolder.h"

namespace tavrik {
namespace {

/// The finding where ordinary users see their own processes only.
Finding CheckWhereProcessesAreHidden(const std::string& active) {
    const FakeFolder proc;
    const Host host{ProcessTable(proc.Path()),
                    ServiceState{"loaded", active, "running", "success", "tavrik", "5", "", "", ""},
                    std::nullopt,
                    std::nullopt,
                    {}};
    return CheckService(host).front();
}

TEST(ServiceCheckTest, AHiddenDaemonIsKnownFromSystemd) {
    const Finding finding = CheckWhereProcessesAreHidden("active");
    EXPECT_EQ(finding.mark, Mark::Ok);
    EXPECT_EQ(finding.text, "process 5, under systemd");
}

TEST(ServiceCheckTest, AHiddenDaemonMayRunWithoutSystemd) {
    EXPECT_EQ(CheckWhereProcessesAreHidden("inactive").mark, Mark::Unknown);
}

}  // namespace
}  // namespace tavrik
