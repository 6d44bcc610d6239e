#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "pellix/CommandHandler.h"
#include "pellix/Device.h"
#include "pellix/DeviceHandler.h"

namespace pellix {

/// Link to one PELLIX master: its tty, its commands, the model of the device behind it, and three
/// threads: parser (reads the tty), timeout monitor (expires commands), state thread (brings the
/// master to operate).
///
/// Requests may come from any thread. Each blocks until the master has answered or the command
/// has timed out (about 1 s after it was created). While the tty takes no bytes it may last 1 s
/// for its turn to write and 3 s for room.
/// They return kResultOk, the master's error code, kResultTimeout or kResultNoCommand.
class Pellix {
public:
    /// Opens the tty `path` ("/dev/ttyACM0"). No thread runs yet.
    /// @throws std::exception* when it cannot be opened; the catcher deletes it.
    explicit Pellix(const std::string& path);
    Pellix(const Pellix&) = delete;
    Pellix& operator=(const Pellix&) = delete;

    /// Ends and joins the threads, which needs at most one read (1 s) or write (4 s) plus one
    /// request time-out, and closes the tty (see SerialConnection::Close()). Not while pinned.
    virtual ~Pellix();

    /// Starts the threads and reads identity, mode and, in modes 3 and 4, the device's data.
    /// @return kResultOk, or the result of the request that failed five times: the link is then
    ///         unusable
    [[nodiscard]] unsigned Init();

    /// The master has been unplugged: nothing is sent any more, and the state thread ends. The
    /// other threads go on, so that requests under way still end. Any thread.
    void Stop();

    /// Tells the threads to end, without waiting for them. Not while pinned: nothing expires the
    /// commands of a call any more.
    void EndThreads() { running = false; }

    /// Marks the link as used by a call. It is not to be destroyed before each Pin() has found
    /// its Unpin(). Any thread; Pin() only while the link cannot be removed.
    void Pin();
    void Unpin();
    bool IsPinned() const;
    void WaitUntilUnpinned();
    void WaitUntilUnpinned(std::chrono::steady_clock::time_point deadline);

    unsigned RequestID();
    unsigned RequestMode();
    unsigned RequestDeviceInfo();
    /// Reads product ID, then, if that succeeded, serial number.
    unsigned RequestDeviceString();
    unsigned RequestPDOUT();
    unsigned ReadParameter(unsigned index, unsigned subindex);
    unsigned WriteParameter(unsigned index, unsigned subindex,
                            const std::vector<std::uint8_t>& bytes);
    unsigned WritePDOUT(const std::vector<std::uint8_t>& bytes);
    unsigned SetDOUTINFO(unsigned number);
    unsigned SetROBINPUT(unsigned number);
    unsigned SetROBOUTPUT(unsigned number);
    unsigned StoreConfig();
    unsigned SysReset();
    unsigned Operate();
    unsigned Restart();
    unsigned Fallback(bool flag);

    /// The requests above with up to five attempts, 100 ms apart.
    unsigned UpdateID();
    unsigned UpdateMode();
    unsigned UpdateDeviceInfo();
    unsigned UpdateDeviceString();

    // What follows reads the model only; nothing is sent. Any thread.

    /// Device node that the link was created on.
    const std::string& GetPortName() const { return devicePath; }

    /// The product that the master last reported about itself; empty until it did.
    std::string GetID() const;

    /// Data-link mode code.
    int GetDeviceMode() const;

    std::vector<std::uint8_t> GetParameter(unsigned index, unsigned subindex) const;

    /// The device's information numbers; empty while not connected.
    std::vector<std::uint32_t> GetDeviceInfo() const;

    /// Whether the data of the device behind the master was read.
    bool IsConnected() const { return connected; }

    /// The text by which clients address master and gripper: product ID, and " SN:" and serial
    /// number when there is one. Empty while not initialised or not connected (logged).
    std::string GetDeviceString() const;

    /// Whether GetDeviceString() gives `text`; logs the same.
    bool IsNamed(std::string_view text) const;

    static std::string GetModeName(int mode);

    /// Whether `product` is one of the products that a supported master calls itself.
    static bool IsMasterProduct(std::string_view product);

    /// The model of the device behind the master.
    Device& GetDevice() const { return deviceHandler->GetDevice(); }

private:
    unsigned Complete(Command* command);
    unsigned Query(std::string_view key);
    unsigned Assign(std::string_view key, const std::string& value);
    unsigned Call(std::string_view key, const std::vector<std::string>& arguments);
    unsigned Retry(std::string_view what, unsigned (Pellix::*request)());

    unsigned ReadMaster();
    void ParserLoop();
    void TimeoutMonitorLoop();
    void StateLoop();
    void FollowMode(int& previous);
    bool ActOnMode(int mode);
    bool SwitchToOperate();
    void JoinStateThread();
    const std::string& CurrentName() const;

    const std::string devicePath;
    std::atomic<bool> connected = false;
    std::atomic<bool> initialized = false;
    std::unique_ptr<DeviceHandler> deviceHandler;
    std::unique_ptr<CommandHandler> commandHandler;
    std::thread parserThread;
    std::thread timeoutMonitorThread;
    std::thread stateThread;
    std::atomic<bool> stopped = false;        // the master has been unplugged
    std::atomic<bool> running = false;        // the three loops go on while it is true
    std::atomic<bool> stateLoopEnded = true;  // nothing of the state thread waits any more
    mutable std::string name;  // the device string last put together; guarded by nameMutex
    mutable std::optional<unsigned> nameRevision;  // of the parameters; guarded by nameMutex
    mutable std::mutex nameMutex;                  // taken before the device's locks
    unsigned pins = 0;                             // guarded by pinMutex
    mutable std::mutex pinMutex;                   // guards pins; no other lock is taken under it
    std::condition_variable unpinned;
};

}  // namespace pellix
