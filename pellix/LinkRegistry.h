#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Pellix.h"

/// Lets a link go that GetLink() has handed out.
struct UnpinLink {
    void operator()(pellix::Pellix* link) const { link->Unpin(); }
};

/// A link in use by a call, or null. The registry owns the link and does not destroy it as long
/// as a call holds this.
using LinkInUse = std::unique_ptr<pellix::Pellix, UnpinLink>;

/// The open links, one for each attached master, in the order in which they were added.
///
/// It is an object apart from the GripperManager because the monitor thread, which nobody joins,
/// may be adding a master while the manager goes: the two share it.
///
/// Any thread may call. Only GetLink() waits for the lock with a limit.
class LinkRegistry {
public:
    /// @param lastCalls how long Close() waits for calls; a call makes two requests at most, of 4 s
    ///        each if the tty takes no bytes
    explicit LinkRegistry(std::chrono::milliseconds lastCalls = std::chrono::seconds(9))
        : patience(lastCalls) {}
    LinkRegistry(const LinkRegistry&) = delete;
    LinkRegistry& operator=(const LinkRegistry&) = delete;

    /// The link whose device string is exactly `deviceString`; waits at most 100 ms for the lock.
    /// @return null when there is none or the lock was not had (both logged)
    LinkInUse GetLink(const std::string& deviceString);

    /// Device strings of the usable links. Asks a master without a valid ID for it again, which
    /// may take a request's time-out under the lock.
    std::vector<std::string> GetGrippers();

    /// Opens and initialises a link on the device node, without the lock. A node that has a link
    /// already keeps it and gets no second one, which would steal the first one's replies.
    /// @return 0 when the node has its link, otherwise the failing request's result or -1
    int AddDevice(const std::string& node);

    /// Stops and destroys the link on the device node, if there is one, after the calls that use
    /// it have come back (at most a request's time-out). Others can use the registry while it
    /// waits for those calls, but not while it joins the link's threads and closes its tty.
    void RemoveDevice(const std::string& node);

    /// Destroys every other link, for the end of the process, and takes no new ones from then on.
    /// Calls that still use a link get their answer if it comes in time. None should be under
    /// way: the servers have stopped.
    /// @return the lock, still held
    std::unique_lock<std::timed_mutex> Close();

private:
    bool HasLink(const std::string& node);
    void Append(std::unique_ptr<pellix::Pellix> link);
    void Remove(std::size_t position, std::unique_lock<std::timed_mutex>& lock);

    std::timed_mutex mutex;              // guards links and closed; taken before any lock of a link
    std::vector<pellix::Pellix*> links;  // owned; a slot may be null
    const std::chrono::milliseconds patience;
    bool closed = false;
};
