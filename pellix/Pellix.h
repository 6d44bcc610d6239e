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
/// threads: parser (reads the tty), timeout monitor (expires commands) and state thread (brings
/// the master to operate).
///
/// Any thread may send requests. A request blocks until the master answers or the command times
/// out, 1 s after its creation. If the tty accepts no bytes, it blocks up to 1 s for the write lock
/// and 3 s for the tty. Requests return kResultOk, the master's error code, kResultTimeout or
/// kResultNoCommand.
class Pellix {
public:
    /// Opens the tty `devicePath` ("/dev/ttyACM0"). Starts no thread.
    /// @throws std::exception* if it cannot be opened; the catcher deletes it
    explicit Pellix(const std::string& devicePath);
    Pellix(const Pellix&) = delete;
    Pellix& operator=(const Pellix&) = delete;

    /// Joins the threads, which takes at most one read (1 s) or write (4 s) plus one request
    /// timeout, and closes the tty (see SerialConnection::Close()). Must not be pinned.
    virtual ~Pellix();

    /// Starts the threads and reads the master's ID, its mode and, in modes 3 and 4, the device's
    /// data. For each request that fails, blocks 5.5 s if the master is silent,
    /// and about 20 s if its tty accepts no bytes. To be called once.
    /// @return kResultOk, or the result of the request that failed five times; the link is then
    ///         unusable
    /// @throws std::system_error if a thread cannot be started
    [[nodiscard]] unsigned Init();

    /// The master has been unplugged: sends nothing more and ends the state thread. The other
    /// threads continue, so that pending requests still end. Any thread; does not block.
    void Stop();

    /// Tells the threads to end and does not wait for them. Must not be pinned, because nothing
    /// expires a call's commands any more.
    void EndThreads() { running = false; }

    /// Mark the link as used by a call. It must not be destroyed before each Pin() is followed by
    /// its Unpin(). Any thread; Pin() only under the lock of the LinkRegistry.
    void Pin();
    void Unpin();
    bool IsPinned() const;
    void WaitUntilUnpinned();
    void WaitUntilUnpinned(std::chrono::steady_clock::time_point deadline);

    // Requests.

    unsigned RequestID();
    unsigned RequestMode();
    unsigned RequestDeviceInfo();
    /// Reads the product ID and, if that succeeds, the serial number.
    unsigned RequestDeviceString();
    unsigned RequestPDOUT();
    unsigned ReadParameter(unsigned index, unsigned subindex);
    unsigned WriteParameter(unsigned index, unsigned subindex,
                            const std::vector<std::uint8_t>& bytes);
    unsigned WritePDOUT(const std::vector<std::uint8_t>& bytes);
    unsigned Operate();
    unsigned Restart();

    /// Requests that complete the master's command set; the daemon does not send them itself.
    unsigned SetDOUTINFO(unsigned number);
    unsigned SetROBINPUT(unsigned number);
    unsigned SetROBOUTPUT(unsigned number);
    unsigned StoreConfig();
    unsigned SysReset();
    unsigned Fallback(bool flag);

    /// The requests of these names, with up to five attempts, 100 ms apart.
    unsigned UpdateID();
    unsigned UpdateMode();
    unsigned UpdateDeviceInfo();
    unsigned UpdateDeviceString();

    // The following only read the model; they send nothing. Any thread.

    /// @return device node that the link was created on
    const std::string& GetPortName() const { return devicePath; }

    /// @return product that the master last reported about itself; empty before the first report
    std::string GetID() const;

    /// @return data-link mode code
    int GetDeviceMode() const;

    std::vector<std::uint8_t> GetParameter(unsigned index, unsigned subindex) const;

    /// @return numbers of the last "DEVINFO" line; empty while not connected
    std::vector<std::uint32_t> GetDeviceInfo() const;

    /// @return whether Init() has read the device's data or the device has started up since
    bool IsConnected() const { return connected; }

    /// @return the text by which clients address master and gripper: product ID, then " SN:" and
    ///         serial number if there is one. Empty while not initialised or not connected
    ///         (logged).
    std::string GetDeviceString() const;

    /// @return whether GetDeviceString() equals `text`; logs the same
    bool IsNamed(std::string_view text) const;

    /// See ModeName(); for users of a link who do not include Protocol.h.
    static std::string GetModeName(int mode);

    /// @return whether `product` is the product name of a supported master
    static bool IsMasterProduct(std::string_view product);

    /// @return the model of the device behind the master; lives as long as the link
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
    std::atomic<bool> running = false;        // the three loops run while it is true
    std::atomic<bool> stateLoopEnded = true;  // the state thread waits for no command
    mutable std::string name;                 // cached device string; guarded by nameMutex
    // Revision of the parameters that `name` was built from; guarded by nameMutex.
    mutable std::optional<unsigned> nameRevision;
    mutable std::mutex nameMutex;  // taken before the device's locks
    unsigned pins = 0;             // guarded by pinMutex
    mutable std::mutex pinMutex;   // guards pins; no other lock is taken under it
    std::condition_variable unpinned;
};

}  // namespace pellix
