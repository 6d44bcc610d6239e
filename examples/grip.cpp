// grip [GRIPPER [URL]]: grips once, reports whether there was a part, and releases it.
//
// THE FINGERS MOVE, over their whole stroke if the gripper needs a reference run. On a failure, the
// program prints one line and exits with status 1. It does not release a part that the gripper
// holds.
//
// Adapt the constants, in particular the state codes, which are those of the simulated grippers.
// Take yours from the manual of the gripper.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>
#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/client.hpp>
#include <xmlrpc-c/client_transport.hpp>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr int kSet = 0;  // parameter set: limits and force
// A hung master delays an answer by several seconds. The library rounds up to 3, 6, 9 s...
constexpr milliseconds kCallTime = seconds(9);
constexpr seconds kMotionTime(10);

constexpr int kReferenceNeeded = 1;
constexpr int kReleased = 4;
constexpr int kHolding = 6;
constexpr int kNoPart = 7;
constexpr int kReady = 8;
constexpr unsigned kFaults = 0x10 | 0x20;  // flags in the state byte: fault, temperature fault

std::string StatusText(int status) {
    switch (status) {
        case 3:
            return "no such gripper, or not supported by its model";
        case 5:
            return "its master does not answer; the command may or may not have been carried out";
        case 12:
            return "nothing could be sent: check the plug and power of its master";
        case 21:
            return "no process data: the gripper is starting, or has lost its cable or power";
        default:
            return "error code of its master";
    }
}

/// Whether a second attempt one second later may succeed.
bool IsPassing(int status) {
    return status == 3 || status == 5 || status == 21;
}

class Daemon {
public:
    explicit Daemon(const std::string& url)
        // An empty proxy, because the library would otherwise use that of the environment.
        : transport(
              xmlrpc_c::clientXmlTransport_curl::constrOpt().timeout(kCallTime.count()).proxy("")),
          client(&transport),
          server(url) {}

    /// Calls a method.
    /// @throws std::exception on a timeout or a fault
    xmlrpc_c::value Call(const std::string& method, const xmlrpc_c::paramList& parameters) {
        xmlrpc_c::rpcOutcome outcome;
        client.call(&server, method, parameters, &outcome);
        if (!outcome.succeeded()) {
            throw std::runtime_error(method + ": " + outcome.getFault().getDescription());
        }
        return outcome.getResult();
    }

    /// Returns the name of the only gripper; fails if there are none or several.
    std::string FindGripper() {
        const xmlrpc_c::value_array answer(Call("GetGrippers", {}));
        std::string names;
        for (const auto& name : answer.cvalue()) {
            names += " '" + xmlrpc_c::value_string(name).cvalue() + "'";
        }
        if (answer.size() != 1) {
            throw std::runtime_error("name one of these grippers:" + names);
        }
        return xmlrpc_c::value_string(answer.cvalue()[0]).cvalue();
    }

private:
    xmlrpc_c::clientXmlTransport_curl transport;
    xmlrpc_c::client_xml client;
    xmlrpc_c::carriageParm_curl0 server;
};

class Gripper {
public:
    Gripper(Daemon& daemon, const std::string& name) : daemon(daemon), name(name) {
        if (name.empty()) {  // the daemon could use a gripper whose name it has not read yet
            throw std::runtime_error("the name of the gripper is empty");
        }
    }

    void Home() { Command("Home", Parameters()); }
    void Grip() { Command("Grip", Parameters().add(xmlrpc_c::value_int(kSet))); }
    void Release() { Command("Release", Parameters().add(xmlrpc_c::value_int(kSet))); }

    struct Reading {
        int state;  // 0: the drive is off or there is no process data
        double position;
    };

    /// Reads state and position together, with GetPDINExcerpt. GetPos can also return 0.0 because
    /// of a failure, and GetFault false. The excerpt is then 0, so this reads it again after a
    /// second.
    Reading Read() {
        unsigned excerpt = Excerpt();
        if (excerpt == 0) {
            std::this_thread::sleep_for(seconds(1));
            excerpt = Excerpt();
        }
        const int state = static_cast<int>(excerpt >> 16U & 0xFU);
        if ((excerpt >> 16U & kFaults) != 0) {
            throw std::runtime_error("reports a fault, in state " + std::to_string(state));
        }
        const auto hundredths =
            static_cast<std::int16_t>((excerpt & 0xFFU) << 8U | (excerpt >> 8U & 0xFFU));
        return {state, hundredths / 100.0};
    }

    /// Waits for the end of a motion. If the master stops answering, the state does not change. So
    /// wait only for states that differ from the one before the motion.
    Reading WaitFor(std::initializer_list<int> states) {
        const auto deadline = Clock::now() + kMotionTime;
        Reading reading = Read();
        while (std::find(states.begin(), states.end(), reading.state) == states.end()) {
            if (Clock::now() > deadline) {
                throw std::runtime_error("still in state " + std::to_string(reading.state) +
                                         " after " + std::to_string(kMotionTime.count()) + " s");
            }
            std::this_thread::sleep_for(milliseconds(50));
            reading = Read();
        }
        return reading;
    }

private:
    xmlrpc_c::paramList Parameters() const {
        return xmlrpc_c::paramList().add(xmlrpc_c::value_string(name));
    }

    unsigned Excerpt() {
        const xmlrpc_c::value_int excerpt(daemon.Call("GetPDINExcerpt", Parameters()));
        return static_cast<unsigned>(excerpt.cvalue());
    }

    /// Calls a method that returns a status. Repeats it once, which is safe for a motion.
    void Command(const std::string& method, const xmlrpc_c::paramList& parameters) {
        int status = xmlrpc_c::value_int(daemon.Call(method, parameters));
        if (IsPassing(status)) {
            std::this_thread::sleep_for(seconds(1));
            status = xmlrpc_c::value_int(daemon.Call(method, parameters));
        }
        if (status != 0) {
            throw std::runtime_error(method + ": status " + std::to_string(status) + ": " +
                                     StatusText(status));
        }
    }

    Daemon& daemon;
    std::string name;
};

void Cycle(Gripper& gripper, const std::string& name) {
    const int state = gripper.Read().state;
    if (state == kHolding) {
        throw std::runtime_error("already holds a part: remove it first");
    }
    if (state == kReferenceNeeded) {
        gripper.Home();
        gripper.WaitFor({kReady});
    }
    gripper.Release();
    gripper.WaitFor({kReleased});

    gripper.Grip();
    const auto gripped = gripper.WaitFor({kHolding, kNoPart});
    std::cout << name << (gripped.state == kHolding ? ": part held at " : ": no part, closed to ")
              << std::fixed << std::setprecision(2) << gripped.position << std::endl;

    gripper.Release();
    gripper.WaitFor({kReleased});
    std::cout << name << ": released" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    std::string name = argc > 1 ? argv[1] : "";
    const std::string url = argc > 2 ? argv[2] : "http://127.0.0.1:44221/RPC2";
    try {
        Daemon daemon(url);
        if (name.empty()) {
            name = daemon.FindGripper();
        }
        Gripper gripper(daemon, name);
        Cycle(gripper, name);
    } catch (const std::exception& error) {
        std::cerr << (name.empty() ? url : name) << ": " << error.what() << std::endl;
        return 1;
    }
    return 0;
}
